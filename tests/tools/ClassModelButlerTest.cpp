// The class model's own macros (ownees, referrers, C++ names) on a small model, and the generator's
// refusal of two classes of one name and of a template whose expansion stops.

#include <filesystem>
#include <fstream>
#include <optional>

#include <gtest/gtest.h>

#include "examples/classmodel/ClassModel.h"
#include "examples/classmodel/ClassModelButler.h"
#include "platform/ZVMTemplate.h"

namespace {

class ClassModelButlerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { c_xSession.emplace(); }
    static void TearDownTestSuite() { c_xSession.reset(); }
    static inline std::optional<CMSession> c_xSession;

    // p: Shape(volatile, size: Count, next -> Shape, parts -> Part); p/sub: Part : Shape (owner -> Shape).
    void SetUp() override {
        m_pxModel = ClassModel::NewModel("p");
        MCObject* p = ClassModel::AddPackage(m_pxModel, "p");
        m_pxShape = ClassModel::AddClass(p, "Shape");
        MCObject* count = ClassModel::AddDataType(p, "Count", "int");
        ClassModel::AddTypedAttribute(m_pxShape, "volatile", count, 1);
        ClassModel::AddTypedAttribute(m_pxShape, "size", count, 1);
        m_pxSub = ClassModel::AddPackage(p, "sub");
        MCObject* part = ClassModel::AddClass(m_pxSub, "Part");
        ASSERT_TRUE(ClassModel::AddSuperclass(part, m_pxShape));
        ClassModel::AddAssociation(p, m_pxShape, m_pxShape, "next");
        ClassModel::AddAssociation(p, m_pxShape, part, "parts");
        ClassModel::AddAssociation(m_pxSub, part, m_pxShape, "owner");
    }
    void TearDown() override { m_pxModel->Expunge(true); }

    MCObject* m_pxModel = nullptr;
    MCObject* m_pxShape = nullptr;
    MCObject* m_pxSub = nullptr;
};

TEST_F(ClassModelButlerTest, WalksOwneesTreesAndReferrersAndSpellsCppNames) {
    const std::pair<const char*, const char*> cases[] = {
        {"${foreach ForEachOwned(Attribute)}${CppName(Name)} ${end}", "volatile_ size "},
        // Held by end A of two associations: ordered as the associations were made.
        {"${foreach ForEachReferrer(Association, EndA)}${Property(Name)} ${end}", "next parts "},
        // Nothing to walk, a name no nomenclature knows, a break-on variable at 0: no pass.
        {"${foreach ForEachOwned(Package)}x${end}.", "."},
        {"${foreach ForEachReferrer(Association, Nowhere)}x${end}.", "."},
        {"${Boolean(go)}${foreach ForEachOwned(Attribute, go)}x${end}.", "."},
        {"${if CppName(Nowhere)}x${else}none${end}", "none"},
    };
    for (auto [text, expected] : cases) {
        SCOPED_TRACE(text);
        ZVMTemplate parsed;
        ZVMTemplateError error;
        ASSERT_TRUE(parsed.Parse(text, error)) << error.Format();
        CMDataButler butler(m_pxShape);
        std::string out;
        EXPECT_TRUE(parsed.Expand(butler, out, error)) << error.Format();
        EXPECT_EQ(out, expected);
        EXPECT_EQ(butler.GetIteratorStackCount(), 0);
        EXPECT_EQ(butler.GetContextStackCount(), 1);
    }
}

// A template that takes the model off the context and then reads it stops the generator with its path,
// and two classes of one name are refused, their headers being one file; either way nothing is written.
TEST_F(ClassModelButlerTest, AnExpansionThatStopsOrTwoClassesOfOneNameStopTheGenerator) {
    const std::string dir = ::testing::TempDir() + "popping";
    std::filesystem::create_directories(dir);
    for (const char* name : {"/cpp_types.tpl", "/cpp_class.tpl"})
        std::ofstream(dir + name) << "${Pop}${Property(Name)}";
    std::vector<std::string> written;
    std::string error;
    EXPECT_FALSE(CMCppGenerator::Generate(m_pxModel, dir, dir, written, error));
    EXPECT_EQ(error.rfind(dir + "/cpp_types.tpl: the expansion stopped: EXUnexpected", 0), 0u) << error;
    EXPECT_TRUE(written.empty());
    ASSERT_NE(ClassModel::AddClass(ClassModel::AddPackage(m_pxSub, "inner"), "Shape"), nullptr);
    EXPECT_FALSE(CMCppGenerator::Generate(m_pxModel, MODELCORE_TEMPLATE_DIR, "/nonexistent", written, error));
    EXPECT_EQ(error, "two classes are named 'Shape': their headers would be one file");
    EXPECT_TRUE(written.empty());
}

}  // namespace
