// The Ecore import of the class model: what a small file becomes, object by object, and what each kind
// of bad input answers ("name:LINE: message"), with nothing left alive after a failed import; and how
// imported data types take names when pasted.

#include <optional>
#include <string>
#include <vector>

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
const std::string c_sTail = "</ecore:EPackage>\n";

std::string Wrap(const std::string& body) {
    return c_sHead + body + c_sTail;
}

std::string Class(const std::string& attributes, const std::string& body = "") {
    return "<eClassifiers xsi:type=\"ecore:EClass\" " + attributes + (body.empty() ? "/>\n" : ">\n" + body) +
           (body.empty() ? "" : "</eClassifiers>\n");
}

std::string Feature(const std::string& kind, const std::string& attributes) {
    return "<eStructuralFeatures xsi:type=\"ecore:E" + kind + "\" " + attributes + "/>\n";
}

// One object a line, oldest ownee first, name spaces left out.
void Dump(const MCObject* object, const std::string& indent, std::string& out) {
    const std::string name = ClassModel::NameOf(object);
    const auto integer = [object](short type) { return std::to_string(ClassModel::IntegerOf(object, type)); };
    const auto target = [object](short type) {
        return ClassModel::NameOf(ClassModel::TargetOf(object, type));
    };
    switch (object->GetType()) {
        case C::tModel:
            out += indent + "model " + name;
            break;
        case C::tPackage:
            out += indent + "package " + name;
            break;
        case C::tClass: {
            out += indent + "class " + name + " abstract " + integer(C::pAbstract) + " interface " +
                   integer(C::pInterface) + " :";
            MCVRefRawAccessor superclasses;
            if (object->GetProperty(C::pSuperclasses, superclasses)) {
                for (size_t i = 0; i < superclasses.GetList()->Entries(); ++i)
                    out += " " + ClassModel::NameOf(superclasses.GetList()->At(i));
            }
            break;
        }
        case C::tAttribute:
            out += indent + "attribute " + name + " " + ClassModel::StringOf(object, C::pTypeName) + " (" +
                   target(C::pAttributeType) + ") upper " + integer(C::pUpperBound);
            break;
        case C::tAssociation:
            out += indent + "association " + name + " " + target(C::pEndA) + " -> " + target(C::pEndB) +
                   " upper " + integer(C::pUpperBound) + " containment " + integer(C::pContainment);
            break;
        case C::tDataType:
        case C::tEnum:
            out += indent + (object->GetType() == C::tEnum ? "enum " : "datatype ") + name + " " +
                   ClassModel::StringOf(object, C::pCppType) + " opaque " + integer(C::pOpaque);
            break;
        case C::tEnumLiteral:
            out += indent + "literal " + name + " " + integer(C::pLiteralValue);
            break;
        default:
            return;
    }
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
              "    class Shape abstract 1 interface 0 :\n"
              "      attribute tags std::string (EString) upper -1\n"
              "      attribute color Color (Color) upper 1\n"
              "    datatype Big Big opaque 1\n"
              "    datatype Count long long opaque 0\n"
              "    package geo\n"
              "      class Part abstract 0 interface 1 : Shape EObject\n"
              "        attribute size long long (Count) upper 1\n"
              "        attribute weight Big (Big) upper 1\n"
              "        attribute value EJavaObject (EJavaObject) upper 1\n"
              "      enum Color Color opaque 0\n"
              "        literal red 0\n"
              "        literal blue 4\n"
              "    association parts Shape -> Part upper -1 containment 1\n"
              "    association any Shape -> EObject upper 1 containment 0\n"
              "  package ecore\n"
              "    datatype EString std::string opaque 0\n"
              "    class EObject abstract 0 interface 0 :\n"
              "    datatype EJavaObject EJavaObject opaque 1\n"
              "live 0");
}

TEST_F(EcoreImportTest, BadInputGivesItsLineAndLeavesNothing) {
    std::string nested;
    for (int depth = 0; depth < 66; ++depth)
        nested += "<eSubpackages name=\"s\">\n";
    for (int depth = 0; depth < 66; ++depth)
        nested += "</eSubpackages>\n";
    const std::string typed = Feature("Attribute", "name=\"a\" eType=\"#//Missing\"");
    const struct {
        const char* m_pcWhat;
        std::string m_sBytes;
        const char* m_pcError;
    } cases[] = {
        {"empty", "", "1: not well-formed XML: No document element found"},
        {"unclosed", c_sHead + "<eClassifiers>\n", "3: not well-formed XML: Start-end tags mismatch"},
        {"foreign root", "<?xml version=\"1.0\"?>\n<a:EPackage xmlns:a=\"urn:x\" name=\"p\"/>",
         "2: root element 'a:EPackage' is not an ecore:EPackage"},
        {"unknown type", Wrap("\n" + Class("name=\"A\"", typed)), "5: unknown type '#//Missing'"},
        {"crlf lines",
         "<?xml version=\"1.0\"?>\r\n" +
             Wrap("\r\n" + Class("name=\"A\"", typed)).substr(c_sHead.find('\n') + 1),
         "5: unknown type '#//Missing'"},
        {"second supertype", Wrap(Class("name=\"A\"") + Class("name=\"B\" eSuperTypes=\"#//A #//Z\"")),
         "4: unknown type '#//Z'"},
        {"other file", Wrap(Class("name=\"A\" eSuperTypes=\"other.ecore#//A\"")),
         "3: unknown type 'other.ecore#//A'"},
        {"not standard", Wrap(Class("name=\"A\" eSuperTypes=\"http://www.eclipse.org/emf/2002/Ecore#//EA\"")),
         "3: unknown type 'http://www.eclipse.org/emf/2002/Ecore#//EA'"},
        {"kind alone",
         Wrap(Class("name=\"A\"", Feature("Attribute", "name=\"a\" eType=\"ecore:EDataType\""))),
         "4: unknown type 'ecore:EDataType'"},
        {"no type", Wrap(Class("name=\"A\"", Feature("Reference", "name=\"r\""))),
         "4: reference 'r' has no type"},
        {"generic classifier",
         Wrap(Class("name=\"A\"",
                    "<eStructuralFeatures xsi:type=\"ecore:EReference\" name=\"r\">\n"
                    "<eGenericType eClassifier=\"#//B\"/></eStructuralFeatures>\n")),
         "5: unknown type '#//B'"},
        {"classifier kind", Wrap("<eClassifiers xsi:type=\"ecore:EThing\" name=\"A\"/>"),
         "3: unknown classifier kind 'ecore:EThing'"},
        {"feature kind", Wrap(Class("name=\"A\"", Feature("Operation", "name=\"f\""))),
         "4: unknown feature kind 'ecore:EOperation'"},
        {"no name", Wrap(Class("name=\"A\"", Feature("Attribute", "eType=\"#//A\""))),
         "4: attribute without a name"},
        {"bad name", Wrap(Class("name=\"two words\"")),
         "3: classifier name 'two words' is not an identifier"},
        {"class type", Wrap(Class("name=\"A\"", Feature("Attribute", "name=\"a\" eType=\"#//A\""))),
         "4: attribute 'a' has class type '#//A'"},
        {"data type",
         Wrap("<eClassifiers xsi:type=\"ecore:EEnum\" name=\"E\"/>" +
              Class("name=\"A\"", Feature("Reference", "name=\"r\" eType=\"#//E\""))),
         "4: reference 'r' has data type '#//E'"},
        {"bad bound",
         Wrap(Class("name=\"A\"", Feature("Reference", "name=\"r\" eType=\"#//A\" upperBound=\"*\""))),
         "4: bad upperBound '*'"},
        {"bad flag", Wrap(Class("name=\"A\" abstract=\"yes\"")), "3: bad abstract 'yes'"},
        {"supertype kind",
         Wrap("<eClassifiers xsi:type=\"ecore:EDataType\" name=\"D\"/>\n" +
              Class("name=\"A\" eSuperTypes=\"#//D\"")),
         "4: supertype '#//D' is not a class"},
        {"self", Wrap(Class("name=\"A\" eSuperTypes=\"#//A\"")),
         "3: the class model refused '#//A' as a superclass of 'A'"},
        {"ring",
         Wrap(Class("name=\"A\" eSuperTypes=\"#//C\"") + Class("name=\"B\" eSuperTypes=\"#//A\"") +
              Class("name=\"C\" eSuperTypes=\"#//B\"")),
         "3: class 'A' is its own superclass"},
        {"feature twice",
         Wrap(Class("name=\"A\"", Feature("Reference", "name=\"f\" eType=\"#//A\"") +
                                      Feature("Attribute", "name=\"f\" eType=\"#//E\"")) +
              "<eClassifiers xsi:type=\"ecore:EEnum\" name=\"E\"/>"),
         "5: feature 'f' given twice in 'A'"},
        {"literal twice",
         Wrap("<eClassifiers xsi:type=\"ecore:EEnum\" name=\"E\">\n<eLiterals name=\"x\"/>\n"
              "<eLiterals name=\"x\" value=\"1\"/></eClassifiers>"),
         "5: literal 'x' given twice in 'E'"},
        {"deep", Wrap(nested), "67: packages nested deeper than 64"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.m_pcWhat);
        EXPECT_EQ(Import(test.m_sBytes), std::string("in.ecore:") + test.m_pcError + "\nlive 0");
    }
    // The committed bad files, read from disk, name themselves.
    for (auto [file, error] :
         {std::pair<const char*, const char*>{"not-well-formed.ecore",
                                              "6: not well-formed XML: Start-end tags mismatch"},
          {"unknown-type.ecore", "5: unknown type '#//Money'"},
          {"wrong-root.ecore", "2: root element 'xmi:XMI' is not an ecore:EPackage"},
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
    for (MCObject* ownee = package->GetFirstOwnee(); ownee; ownee = ownee->GetNextSibling()) {
        if (ownee->IsType(C::tDataType, MCItem::rttiDerived))
            selection.Append(ownee);
    }
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
