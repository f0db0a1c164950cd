// The Ecore import of the class model: what a small file becomes, object by object, and what each kind
// of bad input answers ("name:LINE: message"), with nothing left alive after a failed import; and how
// imported data types take names when pasted.

#include <climits>
#include <map>
#include <optional>

#include <gtest/gtest.h>

#include "ModelCore/ZVFWMC/MCClipboard.h"
#include "examples/classmodel/ClassModel.h"
#include "examples/classmodel/EcoreImport.h"

namespace {

using C = CMCodes;

// Lines 1 and 2 of every inline input; what follows starts on line 3.
const std::string c_sHead =
    "<?xml version=\"1.0\"?>\n"
    "<ecore:EPackage xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
    "xmlns:ecore=\"http://www.eclipse.org/emf/2002/Ecore\" name=\"p\" nsURI=\"http://example.org/p\">\n";

std::string Wrap(const std::string& body) {
    return c_sHead + body + "</ecore:EPackage>\n";
}

std::string Class(const std::string& attributes, const std::string& body = "") {
    return "<eClassifiers xsi:type=\"ecore:EClass\" " + attributes + (body.empty() ? "/>\n" : ">\n" + body) +
           (body.empty() ? "" : "</eClassifiers>\n");
}

std::string Feature(const std::string& kind, const std::string& attributes) {
    return "<eStructuralFeatures xsi:type=\"ecore:E" + kind + "\" " + attributes + "/>\n";
}

// One object a line, oldest ownee first, name spaces left out: its kind and name, then what it holds of
// the class model's strings, references ("->"), integers and superclasses (":").
void Dump(const MCObject* object, const std::string& indent, std::string& out) {
    static const std::map<short, const char*> c_xKinds = {
        {C::tModel, "model"},         {C::tPackage, "package"},         {C::tClass, "class"},
        {C::tAttribute, "attribute"}, {C::tAssociation, "association"}, {C::tDataType, "datatype"},
        {C::tEnum, "enum"},           {C::tEnumLiteral, "literal"}};
    const auto kind = c_xKinds.find(object->GetType());
    if (kind == c_xKinds.end())
        return;
    out += indent + kind->second + " " + ClassModel::NameOf(object);
    for (short type : {C::pTypeName, C::pCppType})
        out += ClassModel::StringOf(object, type).empty() ? "" : " " + ClassModel::StringOf(object, type);
    for (short type : {C::pAttributeType, C::pEndA, C::pEndB})
        if (const MCObject* target = ClassModel::TargetOf(object, type))
            out += " ->" + ClassModel::NameOf(target);
    static const std::pair<short, const char*> c_axIntegers[] = {
        {C::pAbstract, " abstract "},       {C::pInterface, " interface "}, {C::pUpperBound, " upper "},
        {C::pContainment, " containment "}, {C::pOpaque, " opaque "},       {C::pLiteralValue, " value "}};
    for (auto [type, label] : c_axIntegers)
        if (const long value = ClassModel::IntegerOf(object, type, LONG_MIN); value != LONG_MIN)
            out += label + std::to_string(value);
    MCVRefRawAccessor superclasses;
    if (object->GetProperty(C::pSuperclasses, superclasses))
        for (size_t i = 0; i < superclasses.GetList()->Entries(); ++i)
            out += " : " + ClassModel::NameOf(superclasses.GetList()->At(i));
    out += "\n";
    for (const MCObject* ownee = object->GetFirstOwnee(); ownee; ownee = ownee->GetNextSibling())
        Dump(ownee, indent + "  ", out);
}

class EcoreImportTest : public ::testing::Test {
protected:
    // What an import of `bytes` answers: the error, or the model's dump; then how many objects live on.
    static std::string Outcome(const EcoreImportResult& result) {
        std::string out = result.m_sError.empty() ? "" : result.m_sError + "\n";
        if (result.m_pxModel) {
            Dump(result.m_pxModel, "", out);
            result.m_pxModel->Expunge(true);
        }
        return out + "live " + std::to_string(ClassModel::LiveObjects());
    }
    static std::string Import(const std::string& bytes) {
        return Outcome(ImportEcoreBytes("in.ecore", bytes.data(), bytes.size()));
    }

    // The library comes up once per process, so one session serves every test.
    static void SetUpTestSuite() { c_xSession.emplace(); }
    static void TearDownTestSuite() { c_xSession.reset(); }
    static inline std::optional<CMSession> c_xSession;
};

TEST_F(EcoreImportTest, MapsPackagesClassifiersAndFeatures) {
    const std::string ecore = "http://www.eclipse.org/emf/2002/Ecore#//";
    const std::string file = Wrap(
        Class("name=\"Shape\" abstract=\"true\"",
              Feature("Attribute",
                      "name=\"tags\" upperBound=\"-1\" eType=\"ecore:EDataType " + ecore + "EString\"") +
                  Feature("Attribute", "name=\"color\" eType=\"#//geo/Color\"") +
                  Feature("Reference",
                          "name=\"parts\" upperBound=\"-1\" containment=\"true\" eType=\"#//geo/Part\"") +
                  Feature("Reference", "name=\"any\" eType=\"ecore:EClass " + ecore + "EObject\"")) +
        "<eClassifiers xsi:type=\"ecore:EDataType\" name=\"Big\" "
        "instanceClassName=\"java.math.BigInteger\"/>\n"
        "<eClassifiers xsi:type=\"ecore:EDataType\" name=\"Count\" instanceClassName=\"long\"/>\n"
        "<eSubpackages name=\"geo\">\n" +
        Class("name=\"Part\" interface=\"true\" eSuperTypes=\"#//Shape ecore:EClass " + ecore + "EObject\"",
              "<eStructuralFeatures xsi:type=\"ecore:EAttribute\" name=\"size\">"
              "<eGenericType eClassifier=\"#//Count\"/></eStructuralFeatures>\n" +
                  Feature("Attribute", "name=\"weight\" eType=\"#//Big\"") +
                  "<eStructuralFeatures xsi:type=\"ecore:EAttribute\" name=\"value\">"
                  "<eGenericType eTypeParameter=\"#//geo/Part/T\"/></eStructuralFeatures>\n") +
        "<eClassifiers xsi:type=\"ecore:EEnum\" name=\"Color\"><eLiterals name=\"red\"/>"
        "<eLiterals name=\"blue\" value=\"4\"/></eClassifiers>\n"
        "</eSubpackages>\n");
    EXPECT_EQ(Import(file),
              "model p\n"
              "  package p\n"
              "    class Shape abstract 1 interface 0\n"
              "      attribute tags std::string ->EString upper -1\n"
              "      attribute color Color ->Color upper 1\n"
              "    datatype Big Big opaque 1\n"
              "    datatype Count long long opaque 0\n"
              "    package geo\n"
              "      class Part abstract 0 interface 1 : Shape : EObject\n"
              "        attribute size long long ->Count upper 1\n"
              "        attribute weight Big ->Big upper 1\n"
              "        attribute value EJavaObject ->EJavaObject upper 1\n"
              "      enum Color Color opaque 0\n"
              "        literal red value 0\n"
              "        literal blue value 4\n"
              "    association parts ->Shape ->Part upper -1 containment 1\n"
              "    association any ->Shape ->EObject upper 1 containment 0\n"
              "  package ecore\n"
              "    datatype EString std::string opaque 0\n"
              "    class EObject\n"
              "    datatype EJavaObject EJavaObject opaque 1\n"
              "live 0");
}

TEST_F(EcoreImportTest, BadInputGivesItsLineAndLeavesNothing) {
    std::string nested;
    for (int depth = 0; depth < 66; ++depth)
        nested = "<eSubpackages name=\"s\">\n" + nested + "</eSubpackages>\n";
    const std::pair<std::string, const char*> cases[] = {
        {"", "1: not well-formed XML: No document element found"},
        {"<?xml version=\"1.0\"?>\n<a:EPackage xmlns:a=\"urn:x\" name=\"p\"/>",
         "2: root element 'a:EPackage' is not an ecore:EPackage"},
        {Wrap(Class("name=\"A\" eSuperTypes=\"other.ecore#//A\"")), "3: unknown type 'other.ecore#//A'"},
        {Wrap(Class("name=\"A\" eSuperTypes=\"http://www.eclipse.org/emf/2002/Ecore#//EA\"")),
         "3: unknown type 'http://www.eclipse.org/emf/2002/Ecore#//EA'"},
        {Wrap(Class("name=\"A\"", Feature("Attribute", "name=\"a\" eType=\"ecore:EDataType\""))),
         "4: unknown type 'ecore:EDataType'"},
        {Wrap(Class("name=\"A\"", Feature("Reference", "name=\"r\""))), "4: reference 'r' has no type"},
        {Wrap(Class("name=\"A\"",
                    "<eStructuralFeatures xsi:type=\"ecore:EReference\" name=\"r\">\n"
                    "<eGenericType eClassifier=\"#//B\"/></eStructuralFeatures>\n")),
         "5: unknown type '#//B'"},
        {Wrap("<eClassifiers xsi:type=\"ecore:EThing\" name=\"A\"/>"),
         "3: unknown classifier kind 'ecore:EThing'"},
        {Wrap(Class("name=\"A\"", Feature("Operation", "name=\"f\""))),
         "4: unknown feature kind 'ecore:EOperation'"},
        {Wrap(Class("name=\"A\"", Feature("Attribute", "eType=\"#//A\""))), "4: attribute without a name"},
        {Wrap(Class("name=\"two words\"")), "3: classifier name 'two words' is not an identifier"},
        {Wrap(Class("name=\"A\"", Feature("Attribute", "name=\"a\" eType=\"#//A\""))),
         "4: attribute 'a' has class type '#//A'"},
        {Wrap("<eClassifiers xsi:type=\"ecore:EEnum\" name=\"E\"/>" +
              Class("name=\"A\"", Feature("Reference", "name=\"r\" eType=\"#//E\""))),
         "4: reference 'r' has data type '#//E'"},
        {Wrap(Class("name=\"A\"", Feature("Reference", "name=\"r\" eType=\"#//A\" upperBound=\"*\""))),
         "4: bad upperBound '*'"},
        {Wrap(Class("name=\"A\" abstract=\"yes\"")), "3: bad abstract 'yes'"},
        {Wrap("<eClassifiers xsi:type=\"ecore:EDataType\" name=\"D\"/>\n" +
              Class("name=\"A\" eSuperTypes=\"#//D\"")),
         "4: supertype '#//D' is not a class"},
        {Wrap(Class("name=\"A\" eSuperTypes=\"#//A\"")),
         "3: the class model refused '#//A' as a superclass of 'A'"},
        {Wrap(Class("name=\"A\" eSuperTypes=\"#//C\"") + Class("name=\"B\" eSuperTypes=\"#//A\"") +
              Class("name=\"C\" eSuperTypes=\"#//B\"")),
         "3: class 'A' is its own superclass"},
        {Wrap(Class("name=\"A\"", Feature("Reference", "name=\"f\" eType=\"#//A\"") +
                                      Feature("Attribute", "name=\"f\" eType=\"#//E\"")) +
              "<eClassifiers xsi:type=\"ecore:EEnum\" name=\"E\"/>"),
         "5: feature 'f' given twice in 'A'"},
        {Wrap("<eClassifiers xsi:type=\"ecore:EEnum\" name=\"E\">\n<eLiterals name=\"x\"/>\n"
              "<eLiterals name=\"x\" value=\"1\"/></eClassifiers>"),
         "5: literal 'x' given twice in 'E'"},
        {Wrap(nested), "67: packages nested deeper than 64"},
    };
    for (const auto& [bytes, error] : cases) {
        SCOPED_TRACE(error);
        EXPECT_EQ(Import(bytes), std::string("in.ecore:") + error + "\nlive 0");
    }
    // The committed bad files, read from disk, name themselves.
    for (auto [file, error] : {std::pair<const char*, const char*>{
                                   "wrong-root.ecore", "2: root element 'xmi:XMI' is not an ecore:EPackage"},
                               {"absent.ecore", " cannot read the file"}}) {
        const std::string path = std::string(ECORE_TEST_DATA) + "/" + file;
        EXPECT_EQ(Outcome(ImportEcore(path.c_str())), path + ":" + error + "\nlive 0");
    }
}

// A data type pasted where its name is taken is renamed, and one that C++ spells by its name is spelled
// by the new one; a standard type keeps its spelling.
TEST_F(EcoreImportTest, PastedTypesTakeFreeNames) {
    const std::string file = Wrap(
        "<eClassifiers xsi:type=\"ecore:EDataType\" name=\"Money\"/>\n"
        "<eClassifiers xsi:type=\"ecore:EDataType\" name=\"Text\" instanceClassName=\"java.lang.String\"/>\n"
        "<eClassifiers xsi:type=\"ecore:EEnum\" name=\"Color\"><eLiterals name=\"red\"/></eClassifiers>\n");
    const EcoreImportResult imported = ImportEcoreBytes("in.ecore", file.data(), file.size());
    ASSERT_NE(imported.m_pxModel, nullptr);
    MCObject* package = imported.m_pxModel->GetFirstOwnee();
    while (package && !package->IsType(C::tPackage, MCItem::rttiExact))
        package = package->GetNextSibling();
    ASSERT_NE(package, nullptr);
    ZVTSList<MCObject*> selection;
    for (MCObject* ownee = package->GetFirstOwnee(); ownee; ownee = ownee->GetNextSibling())
        if (ownee->IsType(C::tDataType, MCItem::rttiDerived))
            selection.Append(ownee);
    MCClipList copy(selection, *imported.m_pxModel, MCClipList::modeCopy, nullptr);
    std::vector<char> buffer(static_cast<size_t>(copy.GetBufferSize()));
    copy.CopyBuffer(buffer.data());
    ZVTSList<MCObject*> targets;
    targets.Append(package);
    ZVTOrderedVectorT<long> ids;
    MCClipList paste(targets, *package, buffer.data(), static_cast<int>(buffer.size()), &ids, nullptr);
    std::string pasted;
    for (size_t i = 0; i < ids.Length(); ++i) {
        const MCObject* type = MCObject::ResolveId(ids[i]);
        pasted += ClassModel::NameOf(type) + " " + ClassModel::StringOf(type, C::pCppType) + "; ";
    }
    EXPECT_EQ(pasted, "Money_2 Money_2; Text_2 std::string; Color_2 Color_2; ");
    imported.m_pxModel->Expunge(true);
}

}  // namespace
