// mcinspect on a model file and a clip buffer written by the class model, intact and damaged at chosen
// places: the exit code names the damage and the output shows what was read; mcinspect expand on good
// and bad templates; mcinspect --dump on good and bad models; and mcinspect --dot on a class model, on a
// saved package (an owner tree), on names that need escaping and on bad models.

#include <cstdio>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>
#include <sys/wait.h>

#include "examples/classmodel/ClassModel.h"

namespace {

std::string ReadAll(const std::string& path) {
    std::ostringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    return bytes.str();
}

std::string Path(const std::string& name, const char* extension = ".mdl") {
    return ::testing::TempDir() + "mcinspect_" + name + extension;
}

// Writes `bytes` to the file of that name and gives its path.
std::string File(const std::string& name, const std::string& bytes, const char* extension = ".mdl") {
    std::ofstream(Path(name, extension), std::ios::binary | std::ios::trunc) << bytes;
    return Path(name, extension);
}

/// The arguments of one run, the exit code it must give and pieces of what the tool must say (stdout and
/// stderr), in order.
struct Run {
    std::string m_sArguments;
    int m_nExit;
    std::vector<std::string> m_xSays;
};

void Check(const std::vector<Run>& runs) {
    for (const Run& run : runs) {
        SCOPED_TRACE(run.m_sArguments);
        FILE* pipe = popen((std::string(MCINSPECT_PATH) + " " + run.m_sArguments + " 2>&1").c_str(), "r");
        ASSERT_NE(pipe, nullptr);
        std::string output;
        char buffer[512];
        while (std::fgets(buffer, sizeof buffer, pipe))
            output += buffer;
        const int status = pclose(pipe);
        EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, run.m_nExit) << output;
        size_t at = 0;
        for (const std::string& piece : run.m_xSays)
            ASSERT_NE(at = output.find(piece, at), std::string::npos) << piece << output;
    }
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
        c_nPackageOwnees = package->GetOwneeCount();
        model->Expunge(true);
        ASSERT_TRUE(written);
        c_sGood = ReadAll(Path("good"));
        File("bad_prefix", "X" + c_sGood.substr(1));
        File("trailing_token", c_sGood + "\x33");

        // For --dot: a class whose name needs every escape and an attribute name that is no UTF-8, and
        // their package saved on its own, so that its file's root is no class model.
        model = ClassModel::NewModel("odd");
        package = ClassModel::AddPackage(model, "p");
        MCObject* base = ClassModel::AddClass(package, "Base");
        MCObject* odd = ClassModel::AddClass(package, "Say \"hi\" \\ {x|y} <z>\nagain");
        ClassModel::AddAttribute(odd, "caf\xe9", "int", 0);
        const bool derived = ClassModel::AddSuperclass(odd, base);
        bool packageWritten = false;
        ClassModel::Save(model, Path("dot_odd").c_str(), written);
        ClassModel::Save(package, Path("dot_package").c_str(), packageWritten);
        model->Expunge(true);
        ASSERT_TRUE(derived && written && packageWritten);
    }

    static inline std::string c_sGood;
    static inline std::string c_sClip;
    static inline long c_lModelId = 0;
    static inline long c_lPackageId = 0;
    static inline long c_nPackageOwnees = 0;
};

TEST_F(MCInspectTest, ModelFilesListTheirObjectsOrNameTheirDamage) {
    // The first object record: token 2, then the model's type 530 (0x0212) little-endian.
    const size_t record = c_sGood.find(std::string("\x02\x12\x02", 3));
    ASSERT_NE(record, std::string::npos);
    std::string unknownType = c_sGood;
    unknownType[record + 1] = 0x77;  // type 0x0277 is nobody's
    Check({
        // Two classes in one package: ids differ, one owner.
        {Path("good"),
         0,
         {"company \"Sample Host\", product \"ClassDiagram\"", "1510  Package               1",
          "1511  Class                 2"}},
        {File("truncated", c_sGood.substr(0, c_sGood.size() - 7)), 3, {"truncated"}},
        {File("cut_in_head", c_sGood.substr(0, 10)), 2, {"bad head"}},
        {Path("bad_prefix"), 2, {"bad prefix"}},
        {Path("trailing_token"), 4, {"unknown token 51"}},
        {File("unknown_type", unknownType), 5, {"unknown object type 631"}},
    });
}

TEST_F(MCInspectTest, ClipsListEntriesByLevelOrNameTheirDamage) {
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

    auto clip = [](const char* name, std::string bytes) { return "--clip " + File(name, bytes); };
    auto cut = [&](const char* name, size_t size) { return clip(name, c_sClip.substr(0, size)); };
    auto with = [&](const char* name, size_t at, char token) {
        return clip(name, std::string(c_sClip).replace(at, 1, 1, token));
    };
    // A user-defined property record in the global section whose code is not negative.
    constexpr short c_sPositiveCode = 5;
    std::stringstream record;
    {
        MCStream stream(record, ZVTStream::binary);
        stream << static_cast<char>(MCStream::tokenProperty) << c_sPositiveCode << ZVTString("")
               << static_cast<short>(MCCodes::pInteger) << static_cast<unsigned short>(0);
    }
    const std::string package = std::to_string(c_lPackageId);
    Check({
        {clip("clip", c_sClip),
         0,
         {"clip head: source object " + std::to_string(c_lModelId) + ",",
          "level 0: 1 entry\n  copy  level 0  id " + package + "  Package 'shop'",
          "-> create under each target (if it can own a Package)",
          "level 1: " + std::to_string(c_nPackageOwnees) + " entries",
          "Class 'Order'  owner " + package + "  -> follows owner " + package + "\n",
          "end token at offset " + std::to_string(c_sClip.size() - 1)}},
        {cut("cut_in_head", c_nHeadBytes - 1), 2, {"clip head is cut short"}},
        {with("bad_head", 0, MCStream::tokenObject), 2, {"token 0x02 at offset 0 is no clip head"}},
        {cut("cut_in_globals", c_nHeadBytes + 1), 3, {"ends with the global section"}},
        // Inside the first entry's id; before the last record's end token.
        {cut("cut_in_frame", mark + 4), 3, {"truncated in the frame of the entry"}},
        {cut("cut_in_record", c_sClip.size() - 2), 3, {"truncated in the object record"}},
        {cut("no_end_token", c_sClip.size() - 1), 3, {"a paste keeps what came before"}},
        {with("type_1_entry", mark + 1, MCStream::tokenClipEntry1), 4, {"token 0x22"}},
        {with("shared_behind_mark", mark + 1, MCStream::tokenClipEntry2), 4, {"behind the level mark"}},
        {clip("no_level_mark", std::string(c_sClip).erase(mark, 1)), 4, {"end token before the level mark"}},
        // Type 0x77e6 is nobody's.
        {with("unknown_entry_type", frameType + 1, 0x77), 5, {"unknown object type 30694 in the frame"}},
        {clip("positive_udp_code", std::string(c_sClip).insert(c_nHeadBytes + 1, record.str())),
         6,
         {"damaged global section"}},
    });
}

TEST_F(MCInspectTest, ExpandDumpAndDotOnGoodAndBadInput) {
    // Each class with the associations it is end A of; the restore lists a package's classes last first.
    const std::string report = "expand " +
                               File("report",
                                    "${foreach ForEachInTree(Class)}${Property(Name)}:"
                                    "${foreach ForEachReferrer(Association, EndA)} "
                                    "${Property(Name)}->${ReferenceProperty(EndB, Name)}${end};"
                                    "${end}",
                                    ".tpl") +
                               " ";
    auto expand = [](const char* name, const char* text) {
        return "expand " + File(name, text, ".tpl") + " " + Path("good");
    };
    const std::string expanded = Path("expanded");
    std::remove(expanded.c_str());
    Check({
        {report + Path("good") + " -o " + expanded, 0, {}},
        {expand("parse", "x\n${forech Class}"), 7, {".tpl:2:3: unknown directive 'forech'"}},
        {expand("macro", "${Proprety(Name)}"), 7, {".tpl:1:3: unknown macro 'Proprety'"}},
        {expand("popped", "${Pop}${Property(Name)}"), 7, {".tpl: the expansion stopped: EXUnexpected"}},
        {report, 1, {"usage"}},
        // The outline (a restore lists a package's classes last first), then each object's dump.
        {"--dump " + Path("good"),
         0,
         {"CMModel: inspected [Id=", "\n\tCMPackage: shop [Id=", "\n\t\tCMClass: Order_2 [Id=",
          "\n\t\tCMClass: Order [Id=", "\n\t\t\tCMAttribute: total [Id=", "\n\nCMModel(530):\tId=",
          "\n\nCMClass(1511):\tId=",
          ", Name='Order'\n\tT=0 SA=0 N=0 PF=0 NL=0 MCSPropertyT<long>, Type=Id(132)", "\tSubscriber info:\n",
          "\t\tCMPackage:\tId: ", ", Name='shop', RefCnt=1\n", "\tEffective size"}},
        {"--dump " + Path("trailing_token"), 4, {"no model that can be restored"}},
        {"--dump --objects " + Path("good"), 1, {"usage"}},
        // Siblings by name, whatever order the restore gave them.
        {"--dot " + Path("good"),
         0,
         {"subgraph cluster_1 {\n        label=\"shop\"; labelloc=b;\n",
          R"(n1 [label="{Order|total : money\l}"];)", R"(n1 -> n2 [arrowhead=vee, label="lines"];)"}},
        {"--dot " + Path("dot_odd"),
         0,
         {R"(n2 [label="{Say \"hi\" \\ \{x\|y\} \<z\>\nagain|caf? : int\l}"];)",
          "n2 -> n1 [arrowhead=empty];"}},
        {"--dot " + Path("dot_package"),
         0,
         {R"(n1 [label="Package\np"];)", R"(n2 [label="Class\nSay \"hi\" \\ {x|y} <z>\nagain"];
    n1 -> n2;)",
          R"(n1 -> n5 [style=dashed, label="ClassNames"];
    n2 -> n4 [style=dashed, label="Superclasses"];)"}},
        {"--dot " + Path("bad_prefix"), 2, {"no model that can be restored"}},
        {"--dot " + Path("missing"), 1, {"cannot open"}},
        {"--dot " + Path("good") + " -o " + ::testing::TempDir() + "none/x.dot", 1, {"cannot write"}},
        {"--dump -o " + Path("unused") + " " + Path("good"), 1, {"usage"}},
    });
    EXPECT_EQ(ReadAll(expanded), "Order_2:;Order: lines->Order_2;");
}

}  // namespace
