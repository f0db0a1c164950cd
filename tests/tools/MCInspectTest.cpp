// mcinspect on a model file and a clip buffer written by the class model, intact and damaged at chosen
// places: the exit code names the damage and the output shows what was read; mcinspect expand on good
// and bad templates and models; mcinspect --dump on good and bad models; and mcinspect --dot on a class
// model, on a saved package (an owner tree), on names that need escaping and on bad models.

#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>
#include "ModelCore/ZVFWMC/MCCodes.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include "examples/classmodel/ClassModel.h"

namespace {

struct Outcome {
    int m_nExit = -1;
    std::string m_sOutput;  // stdout and stderr
};

Outcome Inspect(const std::string& path, const char* option = "") {
    Outcome outcome;
    const std::string command = std::string(MCINSPECT_PATH) + " " + option + " " + path + " 2>&1";
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

/// Damaged bytes, the exit code they must give and a piece of what the tool must say.
struct Damage {
    const char* m_pcName;
    std::string m_sBytes;
    int m_nExit;
    const char* m_pcSays;
};

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
        // A copy of the package: the package at level 0, what it owns below.
        ZVTSList<MCObject*> selection;
        selection.Append(package);
        {
            MCClipList copy(selection, *model, MCClipList::modeCopy, nullptr);
            c_sClip.assign(static_cast<size_t>(copy.GetBufferSize()), '\0');
            copy.CopyBuffer(c_sClip.data());
        }
        c_lModelId = model->GetId();
        c_lPackageId = package->GetId();
        for (MCObject* ownee = package->GetFirstOwnee(); ownee; ownee = ownee->GetNextSibling())
            ++c_nPackageOwnees;
        model->Expunge(true);
        ASSERT_TRUE(written);
        c_sGood = ReadAll(Path("good"));
        WriteAll(Path("clip"), c_sClip);
        SaveDotModels();
    }

    // For --dot: a class whose name needs every escape and an attribute name that is no UTF-8, and their
    // package saved on its own, so that its file's root is no class model.
    static void SaveDotModels() {
        MCObject* model = ClassModel::NewModel("odd");
        MCObject* package = ClassModel::AddPackage(model, "p");
        MCObject* base = ClassModel::AddClass(package, "Base");
        MCObject* odd = ClassModel::AddClass(package, "Say \"hi\" \\ {x|y} <z>\nagain");
        ClassModel::AddAttribute(odd, "caf\xe9", "int", 0);
        const bool derived = ClassModel::AddSuperclass(odd, base);
        bool modelWritten = false;
        bool packageWritten = false;
        ClassModel::Save(model, Path("dot_odd").c_str(), modelWritten);
        ClassModel::Save(package, Path("dot_package").c_str(), packageWritten);
        model->Expunge(true);
        ASSERT_TRUE(derived && modelWritten && packageWritten);
    }

    static std::string Path(const std::string& name) {
        return ::testing::TempDir() + "mcinspect_" + name + ".mdl";
    }

    static void ExpectDamage(const Damage& damage, const char* option = "") {
        SCOPED_TRACE(damage.m_pcName);
        WriteAll(Path(damage.m_pcName), damage.m_sBytes);
        const Outcome outcome = Inspect(Path(damage.m_pcName), option);
        EXPECT_EQ(outcome.m_nExit, damage.m_nExit) << outcome.m_sOutput;
        EXPECT_NE(outcome.m_sOutput.find(damage.m_pcSays), std::string::npos) << outcome.m_sOutput;
    }

    static inline std::string c_sGood;
    static inline std::string c_sClip;
    static inline long c_lModelId = 0;
    static inline long c_lPackageId = 0;
    static inline int c_nPackageOwnees = 0;
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
    const Damage cases[] = {
        {"head_only", c_sGood.substr(0, record), 0, "objects: 0"},
        {"truncated", c_sGood.substr(0, c_sGood.size() - 7), 3, "truncated"},
        {"cut_in_head", c_sGood.substr(0, 10), 2, "bad head"},
        {"bad_prefix", badPrefix, 2, "bad prefix"},
        {"trailing_token", c_sGood + "\x33", 4, "unknown token 51"},
        {"unknown_type", unknownType, 5, "unknown object type 631"},
    };
    for (const Damage& damage : cases)
        ExpectDamage(damage);
}

TEST_F(MCInspectTest, GoodClipListsEntriesByLevelWithWhatAPasteDoes) {
    const Outcome outcome = Inspect(Path("clip"), "--clip");
    EXPECT_EQ(outcome.m_nExit, 0) << outcome.m_sOutput;
    const std::string package = std::to_string(c_lPackageId);
    const std::string says[] = {
        "clip head: source object " + std::to_string(c_lModelId) + ",",
        "level 0: 1 entry\n  copy  level 0  id " + package + "  Package 'shop'",
        "-> create under each target (if it can own a Package)",
        "level 1: " + std::to_string(c_nPackageOwnees) + " entries",
        "Class 'Order'  owner " + package + "  -> follows owner " + package + "\n",
        "end token at offset " + std::to_string(c_sClip.size() - 1),
    };
    for (const std::string& line : says)
        EXPECT_NE(outcome.m_sOutput.find(line), std::string::npos) << line << "\n" << outcome.m_sOutput;
}

TEST_F(MCInspectTest, DamagedClipsGiveTheirExitCode) {
    // The head is its token, the source's id and address token; the class model has no user-defined
    // property, so its global section is the two tokens, and the closure makes no entry before the mark.
    constexpr size_t c_nHeadBytes = 1 + 4 + 4;
    const size_t mark = c_nHeadBytes + 2;
    ASSERT_EQ(c_sClip[c_nHeadBytes], MCStream::tokenGlobals);
    ASSERT_EQ(c_sClip[mark], MCStream::tokenClipLevel);
    ASSERT_EQ(c_sClip[mark + 1], MCStream::tokenClipEntry0);
    // The package's frame ends with its type, little-endian, before the record's token.
    const char packageFrameEnd[] = {static_cast<char>(CMCodes::tPackage & 0xFF),
                                    static_cast<char>(CMCodes::tPackage >> 8), MCStream::tokenObject};
    const size_t frameType = c_sClip.find(std::string(packageFrameEnd, sizeof packageFrameEnd), mark);
    ASSERT_NE(frameType, std::string::npos);

    auto with = [](size_t at, char token) {
        std::string bytes = c_sClip;
        bytes[at] = token;
        return bytes;
    };
    std::string noMark = c_sClip;
    noMark.erase(mark, 1);
    // A user-defined property record in the global section whose code is not negative.
    constexpr short c_sPositiveCode = 5;
    std::stringstream record;
    {
        MCStream stream(record, ZVTStream::binary);
        stream << static_cast<char>(MCStream::tokenProperty) << c_sPositiveCode << ZVTString("")
               << static_cast<short>(MCCodes::pInteger) << static_cast<unsigned short>(0);
    }
    std::string positiveCode = c_sClip;
    positiveCode.insert(c_nHeadBytes + 1, record.str());
    const Damage cases[] = {
        {"cut_in_head", c_sClip.substr(0, c_nHeadBytes - 1), 2, "clip head is cut short"},
        {"bad_head", with(0, MCStream::tokenObject), 2, "token 0x02 at offset 0 is no clip head"},
        {"cut_in_globals", c_sClip.substr(0, c_nHeadBytes + 1), 3, "ends with the global section"},
        // Inside the first entry's id; before the last record's end token.
        {"cut_in_frame", c_sClip.substr(0, mark + 4), 3, "truncated in the frame of the entry"},
        {"cut_in_record", c_sClip.substr(0, c_sClip.size() - 2), 3, "truncated in the object record"},
        {"no_end_token", c_sClip.substr(0, c_sClip.size() - 1), 3, "a paste keeps what came before"},
        {"type_1_entry", with(mark + 1, MCStream::tokenClipEntry1), 4, "token 0x22"},
        {"shared_behind_mark", with(mark + 1, MCStream::tokenClipEntry2), 4, "behind the level mark"},
        {"no_level_mark", noMark, 4, "end token before the level mark"},
        // Type 0x77e6 is nobody's.
        {"unknown_entry_type", with(frameType + 1, 0x77), 5, "unknown object type 30694 in the frame"},
        {"positive_udp_code", positiveCode, 6, "damaged global section"},
    };
    for (const Damage& damage : cases)
        ExpectDamage(damage, "--clip");
}

TEST_F(MCInspectTest, ExpandWritesWhatATemplateMakesOfTheModel) {
    // Each class with the associations it is end A of; the restore lists a package's classes last first.
    const std::string report =
        "${foreach ForEachInTree(Class)}${Property(Name)}:"
        "${foreach ForEachReferrer(Association, EndA)} ${Property(Name)}->${ReferenceProperty(EndB, "
        "Name)}${end};"
        "${end}";
    std::string badPrefix = c_sGood;
    badPrefix[0] = 'X';
    WriteAll(Path("expand_bad_prefix"), badPrefix);
    const std::string out = Path("expanded");
    const struct {
        const char* m_pcName;
        std::string m_sTemplate;
        std::string m_sArguments;  // after the template
        int m_nExit;
        std::string m_sSays;
    } cases[] = {
        {"to stdout", report, Path("good"), 0, "Order_2:;Order: lines->Order_2;"},
        {"to a file", report, Path("good") + " -o " + out, 0, ""},
        {"parse error", "x\n${forech Class}", Path("good"), 7, ".tpl:2:3: unknown directive 'forech'"},
        {"unknown macro", "${Proprety(Name)}", Path("good"), 7, ".tpl:1:3: unknown macro 'Proprety'"},
        {"bad model", report, Path("expand_bad_prefix"), 2, "no model that can be restored"},
        {"no model", report, Path("missing"), 1, "cannot open"},
        {"no model given", report, "", 1, "usage"},
    };
    std::remove(out.c_str());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.m_pcName);
        const std::string templatePath = ::testing::TempDir() + "mcinspect_expand.tpl";
        WriteAll(templatePath, c.m_sTemplate);
        const Outcome outcome = Inspect(c.m_sArguments, ("expand " + templatePath).c_str());
        EXPECT_EQ(outcome.m_nExit, c.m_nExit) << outcome.m_sOutput;
        EXPECT_NE(outcome.m_sOutput.find(c.m_sSays), std::string::npos) << outcome.m_sOutput;
    }
    EXPECT_EQ(ReadAll(out), "Order_2:;Order: lines->Order_2;");
}

TEST_F(MCInspectTest, DumpPrintsTheRestoredTreeThenEachObject) {
    std::string badPrefix = c_sGood;
    badPrefix[0] = 'X';
    WriteAll(Path("dump_bad_prefix"), badPrefix);
    WriteAll(Path("dump_trailing_token"), c_sGood + "\x33");
    const struct {
        const char* m_pcOption;
        std::string m_sFile;
        int m_nExit;
        std::vector<std::string> m_xSays;  // in this order
    } cases[] = {
        // The outline (a restore lists a package's classes last first), then each object's dump.
        {"--dump",
         Path("good"),
         0,
         {"CMModel: inspected [Id=", "\n\tCMPackage: shop [Id=", "\n\t\tCMClass: Order_2 [Id=",
          "\n\t\tCMClass: Order [Id=", "\n\t\t\tCMAttribute: total [Id=", "\n\nCMModel(530):\tId=",
          "\n\nCMClass(1511):\tId=",
          ", Name='Order'\n\tT=0 SA=0 N=0 PF=0 NL=0 MCSPropertyT<long>, Type=Id(132)", "\tSubscriber info:\n",
          "\t\tCMPackage:\tId: ", ", Name='shop', RefCnt=1\n", "\tEffective size"}},
        {"--dump", Path("dump_bad_prefix"), 2, {"no model that can be restored"}},
        {"--dump", Path("dump_trailing_token"), 4, {"no model that can be restored"}},
        {"--dump --objects", Path("good"), 1, {"usage"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.m_sFile);
        const Outcome outcome = Inspect(c.m_sFile, c.m_pcOption);
        EXPECT_EQ(outcome.m_nExit, c.m_nExit) << outcome.m_sOutput;
        size_t at = 0;
        for (const std::string& piece : c.m_xSays)
            ASSERT_NE(at = outcome.m_sOutput.find(piece, at), std::string::npos)
                << piece << outcome.m_sOutput;
    }
}

TEST_F(MCInspectTest, DotDrawsTheClassDiagramOrTheOwnerTree) {
    std::string badPrefix = c_sGood;
    badPrefix[0] = 'X';
    WriteAll(Path("dot_bad_prefix"), badPrefix);
    const std::string out = ::testing::TempDir() + "mcinspect.dot";
    const struct {
        const char* m_pcName;
        std::string m_sArguments;
        int m_nExit;
        std::vector<std::string> m_xSays;  // in this order
    } cases[] = {
        // Siblings by name, whatever order the restore gave them.
        {"class diagram", "--dot " + Path("good"), 0, {R"(digraph "inspected" {
    graph [rankdir=BT, labelloc=t, label="inspected", fontname="Helvetica"];
    node [shape=record, fontname="Helvetica", fontsize=10];
    edge [fontname="Helvetica", fontsize=9];
    subgraph cluster_1 {
        label="shop"; labelloc=b;
        n1 [label="{Order|total : money\l}"];
        n2 [label="{Order_2|}"];
    }
    n1 -> n2 [arrowhead=vee, label="lines"];
}
)"}},
        {"escaped",
         "--dot " + Path("dot_odd"),
         0,
         {R"(n2 [label="{Say \"hi\" \\ \{x\|y\} \<z\>\nagain|caf? : int\l}"];)",
          "n2 -> n1 [arrowhead=empty];"}},
        {"owner tree",
         "--dot " + Path("dot_package"),
         0,
         {R"(n1 [label="Package\np"];)", R"(n2 [label="Class\nSay \"hi\" \\ {x|y} <z>\nagain"];
    n1 -> n2;)",
          R"(n1 -> n5 [style=dashed, label="ClassNames"];
    n2 -> n4 [style=dashed, label="Superclasses"];)"}},
        {"to a file", "--dot " + Path("good") + " -o " + out, 0, {}},
        {"bad model", "--dot " + Path("dot_bad_prefix"), 2, {"no model that can be restored"}},
        {"no model", "--dot " + Path("missing"), 1, {"cannot open"}},
        {"cannot write",
         "--dot " + Path("good") + " -o " + ::testing::TempDir() + "none/x.dot",
         1,
         {"cannot write"}},
        {"-o without --dot", "--dump -o " + out + " " + Path("good"), 1, {"usage"}},
    };
    std::remove(out.c_str());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.m_pcName);
        const Outcome outcome = Inspect(c.m_sArguments);
        EXPECT_EQ(outcome.m_nExit, c.m_nExit) << outcome.m_sOutput;
        size_t at = 0;
        for (const std::string& piece : c.m_xSays)
            ASSERT_NE(at = outcome.m_sOutput.find(piece, at), std::string::npos)
                << piece << outcome.m_sOutput;
    }
    // The same file gives the same bytes, to a file as to standard output.
    EXPECT_EQ(ReadAll(out), Inspect("--dot " + Path("good")).m_sOutput);
}

}  // namespace
