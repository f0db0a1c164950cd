// mcinspect on a model file written by the class model, intact and damaged at chosen places: the exit
// code names the damage and the output shows what was read.

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>
#include <sys/wait.h>

#include "examples/classmodel/ClassModel.h"

namespace {

struct Outcome {
    int m_nExit = -1;
    std::string m_sOutput;  // stdout and stderr
};

Outcome Inspect(const std::string& path) {
    Outcome outcome;
    const std::string command = std::string(MCINSPECT_PATH) + " " + path + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe)
        return outcome;
    char buffer[512];
    while (std::fgets(buffer, sizeof buffer, pipe))
        outcome.m_sOutput += buffer;
    const int status = pclose(pipe);
    outcome.m_nExit = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

std::string ReadAll(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

void WriteAll(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

class MCInspectTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        CMSession session;
        MCObject* model = ClassModel::NewModel("inspected");
        MCObject* package = ClassModel::AddPackage(model, "shop");
        MCObject* order = ClassModel::AddClass(package, "Order");
        MCObject* line = ClassModel::AddClass(package, "Order");  // becomes Order_2
        ClassModel::AddAttribute(order, "total", "money", 0);
        ClassModel::AddAssociation(package, order, line, "lines");
        bool written = false;
        ClassModel::Save(model, Path("good").c_str(), written);
        model->Expunge(true);
        ASSERT_TRUE(written);
        c_sGood = ReadAll(Path("good"));
    }

    static std::string Path(const std::string& name) {
        return ::testing::TempDir() + "mcinspect_" + name + ".mdl";
    }

    static inline std::string c_sGood;
};

TEST_F(MCInspectTest, GoodFileListsHeadAndObjectsByType) {
    const Outcome outcome = Inspect(Path("good"));
    EXPECT_EQ(outcome.m_nExit, 0) << outcome.m_sOutput;
    EXPECT_NE(outcome.m_sOutput.find("company \"Sample Host\", product \"ClassDiagram\""), std::string::npos)
        << outcome.m_sOutput;
    // Two classes in one package: ids differ, one owner.
    EXPECT_NE(outcome.m_sOutput.find("1511  Class                 2"), std::string::npos)
        << outcome.m_sOutput;
    EXPECT_NE(outcome.m_sOutput.find("1510  Package               1"), std::string::npos)
        << outcome.m_sOutput;
}

TEST_F(MCInspectTest, DamagedFilesGiveTheirExitCode) {
    // The first object record: token 2, then the model's type 530 (0x0212) little-endian.
    const size_t record = c_sGood.find(std::string("\x02\x12\x02", 3));
    ASSERT_NE(record, std::string::npos);
    std::string unknownType = c_sGood;
    unknownType[record + 1] = 0x77;  // type 0x0277 is nobody's
    std::string badPrefix = c_sGood;
    badPrefix[0] = 'X';
    const struct {
        const char* m_pcName;
        std::string m_sBytes;
        int m_nExit;
        const char* m_pcSays;
    } cases[] = {
        {"head_only", c_sGood.substr(0, record), 0, "objects: 0"},
        {"truncated", c_sGood.substr(0, c_sGood.size() - 7), 3, "truncated"},
        {"cut_in_head", c_sGood.substr(0, 10), 2, "bad head"},
        {"bad_prefix", badPrefix, 2, "bad prefix"},
        {"trailing_token", c_sGood + "\x33", 4, "unknown token 51"},
        {"unknown_type", unknownType, 5, "unknown object type 631"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.m_pcName);
        WriteAll(Path(c.m_pcName), c.m_sBytes);
        const Outcome outcome = Inspect(Path(c.m_pcName));
        EXPECT_EQ(outcome.m_nExit, c.m_nExit) << outcome.m_sOutput;
        EXPECT_NE(outcome.m_sOutput.find(c.m_pcSays), std::string::npos) << outcome.m_sOutput;
    }
}

}  // namespace
