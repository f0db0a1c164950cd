// The class model's own macros (ownees, subtrees, referrers, C++ names) on an imported model, and the
// generator's refusal of two classes of one name.

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "examples/classmodel/ClassModel.h"
#include "examples/classmodel/ClassModelButler.h"
#include "examples/classmodel/EcoreImport.h"
#include "platform/ZVMTemplate.h"

namespace {

const char c_acModel[] =
    "<?xml version=\"1.0\"?>\n"
    "<ecore:EPackage xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
    "xmlns:ecore=\"http://www.eclipse.org/emf/2002/Ecore\" name=\"p\" nsURI=\"http://example.org/p\">\n"
    "<eClassifiers xsi:type=\"ecore:EClass\" name=\"Shape\">\n"
    "<eStructuralFeatures xsi:type=\"ecore:EAttribute\" name=\"volatile\" eType=\"#//Count\"/>\n"
    "<eStructuralFeatures xsi:type=\"ecore:EAttribute\" name=\"size\" eType=\"#//Count\"/>\n"
    "<eStructuralFeatures xsi:type=\"ecore:EReference\" name=\"next\" eType=\"#//Shape\"/>\n"
    "<eStructuralFeatures xsi:type=\"ecore:EReference\" name=\"parts\" upperBound=\"-1\" "
    "eType=\"#//sub/Part\"/>\n"
    "</eClassifiers>\n"
    "<eClassifiers xsi:type=\"ecore:EDataType\" name=\"Count\" instanceClassName=\"int\"/>\n"
    "<eSubpackages name=\"sub\">\n"
    "<eClassifiers xsi:type=\"ecore:EClass\" name=\"Part\" eSuperTypes=\"#//Shape\">\n"
    "<eStructuralFeatures xsi:type=\"ecore:EReference\" name=\"owner\" eType=\"#//Shape\"/>\n"
    "</eClassifiers>\n"
    "</eSubpackages>\n"
    "</ecore:EPackage>\n";

class ClassModelButlerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { c_xSession.emplace(); }
    static void TearDownTestSuite() { c_xSession.reset(); }
    static inline std::optional<CMSession> c_xSession;

    void SetUp() override {
        EcoreImportResult imported = ImportEcoreBytes("p.ecore", c_acModel, sizeof c_acModel - 1);
        ASSERT_TRUE(imported.m_pxModel) << imported.m_sError;
        m_pxModel = imported.m_pxModel;
    }
    void TearDown() override { m_pxModel->Expunge(true); }

    // The first object of `type` named `name` below the model.
    MCObject* Find(short type, const char* name) const {
        std::vector<MCObject*> open{m_pxModel};
        while (!open.empty()) {
            MCObject* object = open.back();
            open.pop_back();
            if (object->IsType(type, MCItem::rttiExact) && ClassModel::NameOf(object) == name)
                return object;
            for (MCObject* ownee = object->GetFirstOwnee(); ownee; ownee = ownee->GetNextSibling())
                open.push_back(ownee);
        }
        return nullptr;
    }

    MCObject* m_pxModel = nullptr;
};

TEST_F(ClassModelButlerTest, WalksOwneesTreesAndReferrersAndSpellsCppNames) {
    MCObject* shape = Find(CMCodes::tClass, "Shape");
    const struct {
        MCObject* m_pxAnchor;
        const char* m_pcTemplate;
        const char* m_pcExpected;
    } cases[] = {
        {shape, "${foreach ForEachOwned(Attribute)}${CppName(Name)} ${end}", "volatile_ size "},
        {m_pxModel, "${foreach ForEachInTree(Class)}${Property(Name)} ${end}", "Shape Part "},
        {m_pxModel, "${foreach ForEachInTree(DataType)}${Property(Name)} ${end}", "Count "},
        // Held by end A of two associations, by end B of two: ordered as the associations were made.
        {shape, "${foreach ForEachReferrer(Association, EndA)}${Property(Name)} ${end}", "next parts "},
        {shape, "${foreach ForEachReferrer(Association, EndB)}${Property(Name)} ${end}", "next owner "},
        // Nothing to walk, a name no nomenclature knows, a break-on variable at 0: no pass.
        {shape, "${foreach ForEachOwned(Package)}x${end}.", "."},
        {shape, "${foreach ForEachReferrer(Association, Nowhere)}x${end}.", "."},
        {shape, "${Boolean(go)}${foreach ForEachOwned(Attribute, go)}x${end}.", "."},
        {shape, "${if CppName(Nowhere)}x${else}none${end}", "none"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.m_pcTemplate);
        ZVMTemplate parsed;
        ZVMTemplateError error;
        ASSERT_TRUE(parsed.Parse(c.m_pcTemplate, error)) << error.Format();
        CMDataButler butler(c.m_pxAnchor);
        std::string out;
        EXPECT_TRUE(parsed.Expand(butler, out, error)) << error.Format();
        EXPECT_EQ(out, c.m_pcExpected);
        EXPECT_EQ(butler.GetIteratorStackCount(), 0);
        EXPECT_EQ(butler.GetContextStackCount(), 1);
    }
}

TEST_F(ClassModelButlerTest, RefusesTwoClassesOfOneName) {
    MCObject* inner = ClassModel::AddPackage(Find(CMCodes::tPackage, "sub"), "inner");
    ASSERT_NE(ClassModel::AddClass(inner, "Shape"), nullptr);
    std::vector<std::string> written;
    std::string error;
    EXPECT_FALSE(CMCppGenerator::Generate(m_pxModel, MODELCORE_TEMPLATE_DIR, "/nonexistent", written, error));
    EXPECT_EQ(error, "two classes are named 'Shape': their headers would be one file");
    EXPECT_TRUE(written.empty());
}

}  // namespace
