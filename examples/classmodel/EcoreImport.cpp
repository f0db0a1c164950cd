#include "examples/classmodel/EcoreImport.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <pugixml.hpp>

#include "examples/classmodel/ClassModel.h"

namespace {

using C = CMCodes;

// The namespace of Ecore's own metamodel: it names the kinds of element and the standard types.
constexpr const char c_acEcoreUri[] = "http://www.eclipse.org/emf/2002/Ecore";
// Deeper than any model drawn by hand; bounds the recursion over eSubpackages.
constexpr int c_nMaxPackageDepth = 64;
// What Ecore assumes where a file leaves a bound or a literal's value out.
constexpr long c_nDefaultUpperBound = 1;
constexpr long c_nDefaultLiteralValue = 0;
// The package of the model that holds the standard types a file names.
constexpr const char c_acStandardPackage[] = "ecore";
// What a type parameter stands for, as its erasure does: any value, any object.
constexpr const char c_acAnyValue[] = "EJavaObject";
constexpr const char c_acAnyObject[] = "EObject";

// One of Ecore's standard classifiers: a data type with the Java class of its values, or a class (null).
struct StandardType {
    const char* m_pcName;
    const char* m_pcInstanceClass;
};

const StandardType c_axStandardTypes[] = {
    {"EAnnotation", nullptr},
    {"EAttribute", nullptr},
    {"EBigDecimal", "java.math.BigDecimal"},
    {"EBigInteger", "java.math.BigInteger"},
    {"EBoolean", "boolean"},
    {"EBooleanObject", "java.lang.Boolean"},
    {"EByte", "byte"},
    {"EByteArray", "byte[]"},
    {"EByteObject", "java.lang.Byte"},
    {"EChar", "char"},
    {"ECharacterObject", "java.lang.Character"},
    {"EClass", nullptr},
    {"EClassifier", nullptr},
    {"EDataType", nullptr},
    {"EDate", "java.util.Date"},
    {"EDiagnosticChain", "org.eclipse.emf.common.util.DiagnosticChain"},
    {"EDouble", "double"},
    {"EDoubleObject", "java.lang.Double"},
    {"EEList", "org.eclipse.emf.common.util.EList"},
    {"EEnum", nullptr},
    {"EEnumLiteral", nullptr},
    {"EEnumerator", "org.eclipse.emf.common.util.Enumerator"},
    {"EFactory", nullptr},
    {"EFeatureMap", "org.eclipse.emf.ecore.util.FeatureMap"},
    {"EFeatureMapEntry", "org.eclipse.emf.ecore.util.FeatureMap$Entry"},
    {"EFloat", "float"},
    {"EFloatObject", "java.lang.Float"},
    {"EGenericType", nullptr},
    {"EInt", "int"},
    {"EIntegerObject", "java.lang.Integer"},
    {"EInvocationTargetException", "java.lang.reflect.InvocationTargetException"},
    {"EJavaClass", "java.lang.Class"},
    {"EJavaObject", "java.lang.Object"},
    {"ELong", "long"},
    {"ELongObject", "java.lang.Long"},
    {"EMap", "java.util.Map"},
    {"EModelElement", nullptr},
    {"ENamedElement", nullptr},
    {"EObject", nullptr},
    {"EOperation", nullptr},
    {"EPackage", nullptr},
    {"EParameter", nullptr},
    {"EReference", nullptr},
    {"EResource", "org.eclipse.emf.ecore.resource.Resource"},
    {"EResourceSet", "org.eclipse.emf.ecore.resource.ResourceSet"},
    {"EShort", "short"},
    {"EShortObject", "java.lang.Short"},
    {"EString", "java.lang.String"},
    {"EStringToStringMapEntry", nullptr},
    {"EStructuralFeature", nullptr},
    {"ETreeIterator", "org.eclipse.emf.common.util.TreeIterator"},
    {"ETypeParameter", nullptr},
    {"ETypedElement", nullptr},
};

// The Java classes whose values C++ holds in a standard type; the values of any other are opaque.
struct Spelling {
    const char* m_pcJava;
    const char* m_pcCpp;
};

const Spelling c_axSpellings[] = {
    {"java.lang.String", "std::string"},
    {"int", "int"},
    {"java.lang.Integer", "int"},
    {"boolean", "bool"},
    {"java.lang.Boolean", "bool"},
    {"double", "double"},
    {"java.lang.Double", "double"},
    {"float", "float"},
    {"java.lang.Float", "float"},
    {"long", "long long"},
    {"java.lang.Long", "long long"},
    {"char", "char"},
    {"java.lang.Character", "char"},
    {"byte", "signed char"},
    {"java.lang.Byte", "signed char"},
    {"short", "short"},
    {"java.lang.Short", "short"},
    // A date travels as its text.
    {"java.util.Date", "std::string"},
};

// The C++ spelling of a value of `instanceClass`, null when it has none.
const char* CppSpelling(const std::string& instanceClass) {
    for (const Spelling& spelling : c_axSpellings) {
        if (instanceClass == spelling.m_pcJava)
            return spelling.m_pcCpp;
    }
    return nullptr;
}

const StandardType* FindStandardType(const std::string& name) {
    for (const StandardType& type : c_axStandardTypes) {
        if (name == type.m_pcName)
            return &type;
    }
    return nullptr;
}

// Ecore's rule for names: a Java identifier. Bytes beyond ASCII count as letters, so that a name in UTF-8
// passes whole.
bool IsWellFormedName(const char* name) {
    const auto letter = [](unsigned char c) { return std::isalpha(c) || c == '_' || c == '$' || c >= 0x80; };
    if (!letter(static_cast<unsigned char>(*name)))
        return false;
    for (const char* c = name + 1; *c; ++c) {
        if (!letter(static_cast<unsigned char>(*c)) && !std::isdigit(static_cast<unsigned char>(*c)))
            return false;
    }
    return true;
}

// Why an import stops, with the line of the element it concerns.
struct Failure {
    long m_nLine;
    std::string m_sMessage;
};

// What a reference to a type leads to.
struct Classifier {
    MCObject* m_pxObject = nullptr;
    bool m_bClass = false;
};

// A class whose supertypes and features wait until every classifier of the file is made.
struct PendingClass {
    pugi::xml_node m_xNode;
    MCObject* m_pxClass;
    MCObject* m_pxPackage;
};

// One import: builds the model in two passes over the document, packages and classifiers first, so
// that references may lead forward, then what the classes hold.
class Importer {
public:
    Importer(const char* name, const char* bytes, std::size_t size);
    EcoreImportResult Run();

private:
    void Parse();
    void ImportPackage(pugi::xml_node node, MCObject* owner, const std::string& path, int depth);
    void ImportClassifier(pugi::xml_node node, MCObject* package, const std::string& path);
    void ImportMembers(const PendingClass& pending);
    void ImportFeature(pugi::xml_node node, MCObject* cls, MCObject* package, std::set<std::string>& names);
    void CheckGeneralizations() const;
    void AddSuperclass(MCObject* cls, const std::string& reference, pugi::xml_node node);

    Classifier Resolve(const std::string& reference, long line);
    const Classifier* Standard(const std::string& name);
    std::vector<std::string> References(const std::string& text, long line) const;

    long LineOf(pugi::xml_node node) const;
    long LineAt(std::ptrdiff_t offset) const;
    std::string Kind(pugi::xml_node node) const;
    std::string NameOf(pugi::xml_node node, const char* what) const;
    bool Flag(pugi::xml_node node, const char* attribute) const;
    long Number(pugi::xml_node node, const char* attribute, long absent) const;
    MCObject* Require(MCObject* made, const std::string& what) const;

    std::string m_sName;
    const char* m_pcBytes;
    std::size_t m_nSize;
    std::vector<std::size_t> m_xNewlines;  // offsets of the line ends, ascending
    pugi::xml_document m_xDocument;
    pugi::xml_node m_xRoot;
    std::string m_sNsUri;  // the root package's, by which the file may also name its own types
    long m_nLine = 1;      // of the element being imported, for failures of the class model
    MCObject* m_pxModel = nullptr;
    MCObject* m_pxStandardPackage = nullptr;
    std::map<std::string, Classifier> m_xClassifiers;  // by path below the root: "Name", "sub/Name"
    std::map<std::string, Classifier> m_xStandard;     // standard types made so far, by name
    std::vector<PendingClass> m_xClasses;
};

Importer::Importer(const char* name, const char* bytes, std::size_t size)
    : m_sName(name ? name : ""), m_pcBytes(bytes), m_nSize(bytes ? size : 0) {
    for (std::size_t i = 0; i < m_nSize; ++i) {
        if (m_pcBytes[i] == '\n')
            m_xNewlines.push_back(i);
    }
}

EcoreImportResult Importer::Run() {
    EcoreImportResult result;
    try {
        Parse();
        const std::string name = NameOf(m_xRoot, "package");
        m_sNsUri = m_xRoot.attribute("nsURI").value();
        m_pxModel = Require(ClassModel::NewModel(name.c_str()), "the model");
        ImportPackage(m_xRoot, m_pxModel, "", 0);
        for (const PendingClass& pending : m_xClasses)
            ImportMembers(pending);
        CheckGeneralizations();
        result.m_pxModel = m_pxModel;
        return result;
    } catch (const Failure& failure) {
        result.m_sError = m_sName + ":" + std::to_string(failure.m_nLine) + ": " + failure.m_sMessage;
    } catch (const EXBase& exception) {
        result.m_sError =
            m_sName + ":" + std::to_string(m_nLine) + ": the class model failed: " + exception.what();
    }
    if (m_pxModel)
        mc::ExpungeModel(m_pxModel);
    return result;
}

void Importer::Parse() {
    // UTF-8 as it stands: a conversion would move the offsets that give the lines.
    const pugi::xml_parse_result parsed =
        m_xDocument.load_buffer(m_pcBytes, m_nSize, pugi::parse_default, pugi::encoding_utf8);
    if (!parsed)
        throw Failure{LineAt(parsed.offset), std::string("not well-formed XML: ") + parsed.description()};
    m_xRoot = m_xDocument.document_element();
    const std::string root = m_xRoot.name();
    const std::size_t colon = root.find(':');
    const std::string local = colon == std::string::npos ? root : root.substr(colon + 1);
    const std::string prefix = colon == std::string::npos ? "" : root.substr(0, colon);
    const std::string declaration = prefix.empty() ? "xmlns" : "xmlns:" + prefix;
    if (local != "EPackage" || std::strcmp(m_xRoot.attribute(declaration.c_str()).value(), c_acEcoreUri) != 0)
        throw Failure{LineOf(m_xRoot), "root element '" + root + "' is not an ecore:EPackage"};
}

void Importer::ImportPackage(pugi::xml_node node, MCObject* owner, const std::string& path, int depth) {
    m_nLine = LineOf(node);
    if (depth > c_nMaxPackageDepth)
        throw Failure{m_nLine, "packages nested deeper than " + std::to_string(c_nMaxPackageDepth)};
    const std::string name = NameOf(node, "package");
    MCObject* package = Require(ClassModel::AddPackage(owner, name.c_str()), "package '" + name + "'");
    // The root package's classifiers are named straight below it: "#//Name".
    const std::string here = depth == 0 ? path : path + name + "/";
    for (pugi::xml_node child : node.children()) {
        if (std::strcmp(child.name(), "eClassifiers") == 0)
            ImportClassifier(child, package, here);
        else if (std::strcmp(child.name(), "eSubpackages") == 0)
            ImportPackage(child, package, here, depth + 1);
    }
}

void Importer::ImportClassifier(pugi::xml_node node, MCObject* package, const std::string& path) {
    m_nLine = LineOf(node);
    const std::string kind = Kind(node);
    const std::string name = NameOf(node, "classifier");
    Classifier made;
    if (kind == "EClass") {
        made = {Require(ClassModel::AddClass(package, name.c_str()), "class '" + name + "'"), true};
        ClassModel::SetInteger(made.m_pxObject, C::pAbstract, Flag(node, "abstract"));
        ClassModel::SetInteger(made.m_pxObject, C::pInterface, Flag(node, "interface"));
        m_xClasses.push_back({node, made.m_pxObject, package});
    } else if (kind == "EDataType") {
        std::string instance = node.attribute("instanceClassName").value();
        if (instance.empty())
            instance = node.attribute("instanceTypeName").value();
        made.m_pxObject = Require(ClassModel::AddDataType(package, name.c_str(), CppSpelling(instance)),
                                  "data type '" + name + "'");
    } else if (kind == "EEnum") {
        made.m_pxObject = Require(ClassModel::AddEnum(package, name.c_str()), "enum '" + name + "'");
        std::set<std::string> literals;
        for (pugi::xml_node literal : node.children("eLiterals")) {
            m_nLine = LineOf(literal);
            const std::string literalName = NameOf(literal, "literal");
            if (!literals.insert(literalName).second)
                throw Failure{m_nLine, "literal '" + literalName + "' given twice in '" + name + "'"};
            Require(ClassModel::AddEnumLiteral(made.m_pxObject, literalName.c_str(),
                                               Number(literal, "value", c_nDefaultLiteralValue)),
                    "literal '" + literalName + "'");
        }
    } else {
        throw Failure{LineOf(node),
                      "unknown classifier kind '" + std::string(node.attribute("xsi:type").value()) + "'"};
    }
    // A name given twice keeps leading to the first, as Ecore finds it; the class model renames the second.
    m_xClassifiers.emplace(path + name, made);
}

void Importer::ImportMembers(const PendingClass& pending) {
    const pugi::xml_node node = pending.m_xNode;
    m_nLine = LineOf(node);
    for (const std::string& reference : References(node.attribute("eSuperTypes").value(), m_nLine))
        AddSuperclass(pending.m_pxClass, reference, node);
    std::set<std::string> features;
    for (pugi::xml_node child : node.children()) {
        if (std::strcmp(child.name(), "eGenericSuperTypes") == 0) {
            // A supertype with type arguments: the arguments are left out.
            m_nLine = LineOf(child);
            AddSuperclass(pending.m_pxClass, child.attribute("eClassifier").value(), child);
        } else if (std::strcmp(child.name(), "eStructuralFeatures") == 0) {
            ImportFeature(child, pending.m_pxClass, pending.m_pxPackage, features);
        }
    }
}

void Importer::AddSuperclass(MCObject* cls, const std::string& reference, pugi::xml_node node) {
    const Classifier superclass = Resolve(reference, LineOf(node));
    if (!superclass.m_bClass)
        throw Failure{LineOf(node), "supertype '" + reference + "' is not a class"};
    if (!ClassModel::AddSuperclass(cls, superclass.m_pxObject)) {
        throw Failure{LineOf(node), "the class model refused '" + reference + "' as a superclass of '" +
                                        ClassModel::NameOf(cls) + "'"};
    }
}

// A class's attributes and the associations it leads become the members of one C++ class: their names
// are unique, as Ecore requires.
void Importer::ImportFeature(pugi::xml_node node, MCObject* cls, MCObject* package,
                             std::set<std::string>& names) {
    m_nLine = LineOf(node);
    const std::string kind = Kind(node);
    if (kind != "EAttribute" && kind != "EReference") {
        throw Failure{m_nLine,
                      "unknown feature kind '" + std::string(node.attribute("xsi:type").value()) + "'"};
    }
    const bool attribute = kind == "EAttribute";
    const std::string name = NameOf(node, attribute ? "attribute" : "reference");
    const std::string what = (attribute ? "attribute '" : "reference '") + name + "'";
    if (!names.insert(name).second)
        throw Failure{m_nLine, "feature '" + name + "' given twice in '" + ClassModel::NameOf(cls) + "'"};
    const long upperBound = Number(node, "upperBound", c_nDefaultUpperBound);

    std::string reference;
    Classifier type;
    const std::vector<std::string> named = References(node.attribute("eType").value(), m_nLine);
    const pugi::xml_node generic = node.child("eGenericType");
    if (named.size() > 1) {
        throw Failure{m_nLine, "unknown type '" + std::string(node.attribute("eType").value()) + "'"};
    } else if (named.size() == 1) {
        reference = named.front();
        type = Resolve(reference, m_nLine);
    } else if (generic && *generic.attribute("eClassifier").value()) {
        reference = generic.attribute("eClassifier").value();
        type = Resolve(reference, LineOf(generic));
    } else if (generic) {
        // A type parameter; both stand-ins are standard types, so Standard finds them.
        reference = attribute ? c_acAnyValue : c_acAnyObject;
        if (const Classifier* erased = Standard(reference))
            type = *erased;
    } else {
        throw Failure{m_nLine, what + " has no type"};
    }

    if (attribute) {
        if (type.m_bClass)
            throw Failure{m_nLine, what + " has class type '" + reference + "'"};
        Require(ClassModel::AddTypedAttribute(cls, name.c_str(), type.m_pxObject, upperBound), what);
    } else {
        if (!type.m_bClass)
            throw Failure{m_nLine, what + " has data type '" + reference + "'"};
        MCObject* association =
            Require(ClassModel::AddAssociation(package, cls, type.m_pxObject, name.c_str()), what);
        ClassModel::SetInteger(association, C::pUpperBound, upperBound);
        ClassModel::SetInteger(association, C::pContainment, Flag(node, "containment"));
    }
}

// Ecore forbids a class among its own ancestors, and C++ a class among its own bases; the class model
// only refuses the shortest such ring. A depth-first walk on an explicit stack, so that a long chain of
// superclasses costs no call depth.
void Importer::CheckGeneralizations() const {
    std::map<const MCObject*, std::vector<const MCObject*>> superclasses;
    std::map<const MCObject*, pugi::xml_node> nodes;
    for (const PendingClass& pending : m_xClasses) {
        nodes[pending.m_pxClass] = pending.m_xNode;
        const mc::Targets direct(pending.m_pxClass, C::pSuperclasses);
        superclasses[pending.m_pxClass].assign(direct.begin(), direct.end());
    }
    enum Mark { unseen, onPath, finished };
    std::map<const MCObject*, Mark> marks;
    for (const PendingClass& pending : m_xClasses) {
        if (marks[pending.m_pxClass] != unseen)
            continue;
        marks[pending.m_pxClass] = onPath;
        std::vector<std::pair<const MCObject*, std::size_t>> path{{pending.m_pxClass, 0}};
        while (!path.empty()) {
            const MCObject* cls = path.back().first;
            const std::vector<const MCObject*>& direct = superclasses[cls];
            if (path.back().second == direct.size()) {
                marks[cls] = finished;
                path.pop_back();
                continue;
            }
            const MCObject* superclass = direct[path.back().second++];
            Mark& mark = marks[superclass];
            if (mark == onPath) {
                throw Failure{LineOf(nodes[superclass]),
                              "class '" + ClassModel::NameOf(superclass) + "' is its own superclass"};
            }
            if (mark == unseen) {
                mark = onPath;
                path.emplace_back(superclass, 0);
            }
        }
    }
}

// "#//Name" and "#//sub/Name" lead into this file, also with the file's own namespace before the '#';
// Ecore's namespace before "#//Name" leads to a standard type.
Classifier Importer::Resolve(const std::string& reference, long line) {
    const std::size_t hash = reference.find('#');
    if (hash != std::string::npos && reference.compare(hash + 1, 2, "//") == 0) {
        const std::string document = reference.substr(0, hash);
        const std::string path = reference.substr(hash + 3);
        if (document.empty() || document == m_sNsUri) {
            auto found = m_xClassifiers.find(path);
            if (found != m_xClassifiers.end())
                return found->second;
        } else if (document == c_acEcoreUri && path.find('/') == std::string::npos) {
            if (const Classifier* standard = Standard(path))
                return *standard;
        }
    }
    throw Failure{line, "unknown type '" + reference + "'"};
}

// Null for a name that is no standard type. Ecore's own metamodel has them all.
const Classifier* Importer::Standard(const std::string& name) {
    if (m_sNsUri == c_acEcoreUri) {
        auto own = m_xClassifiers.find(name);
        if (own != m_xClassifiers.end())
            return &own->second;
    }
    auto made = m_xStandard.find(name);
    if (made != m_xStandard.end())
        return &made->second;
    const StandardType* standard = FindStandardType(name);
    if (!standard)
        return nullptr;
    if (!m_pxStandardPackage) {
        m_pxStandardPackage = Require(ClassModel::AddPackage(m_pxModel, c_acStandardPackage),
                                      std::string("package '") + c_acStandardPackage + "'");
    }
    Classifier classifier;
    if (standard->m_pcInstanceClass) {
        classifier.m_pxObject = ClassModel::AddDataType(m_pxStandardPackage, standard->m_pcName,
                                                        CppSpelling(standard->m_pcInstanceClass));
    } else {
        classifier = {ClassModel::AddClass(m_pxStandardPackage, standard->m_pcName), true};
    }
    Require(classifier.m_pxObject, "standard type '" + name + "'");
    return &m_xStandard.emplace(name, classifier).first->second;
}

// The references of a space-separated list, each perhaps after the kind it names ("ecore:EClass").
std::vector<std::string> Importer::References(const std::string& text, long line) const {
    std::vector<std::string> references;
    std::string kind;
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = std::min(text.find_first_of(" \t\r\n", start), text.size());
        const std::string token = text.substr(start, end - start);
        start = end + 1;
        if (token.empty())
            continue;
        if (token.find('#') != std::string::npos) {
            references.push_back(token);
            kind.clear();
        } else if (kind.empty()) {
            kind = token;
        } else {
            throw Failure{line, "unknown type '" + kind + "'"};
        }
    }
    if (!kind.empty())
        throw Failure{line, "unknown type '" + kind + "'"};
    return references;
}

long Importer::LineOf(pugi::xml_node node) const {
    return LineAt(node.offset_debug());
}

long Importer::LineAt(std::ptrdiff_t offset) const {
    const std::size_t at = offset < 0 ? 0 : std::min(static_cast<std::size_t>(offset), m_nSize);
    return 1 + static_cast<long>(std::lower_bound(m_xNewlines.begin(), m_xNewlines.end(), at) -
                                 m_xNewlines.begin());
}

// The kind an element's xsi:type names in Ecore's namespace, "" for any other.
std::string Importer::Kind(pugi::xml_node node) const {
    const std::string type = node.attribute("xsi:type").value();
    const std::size_t colon = type.find(':');
    const std::string prefix = colon == std::string::npos ? "" : type.substr(0, colon);
    const std::string declaration = prefix.empty() ? "xmlns" : "xmlns:" + prefix;
    if (std::strcmp(m_xRoot.attribute(declaration.c_str()).value(), c_acEcoreUri) != 0)
        return "";
    return colon == std::string::npos ? type : type.substr(colon + 1);
}

std::string Importer::NameOf(pugi::xml_node node, const char* what) const {
    const char* name = node.attribute("name").value();
    if (!*name)
        throw Failure{LineOf(node), std::string(what) + " without a name"};
    if (!IsWellFormedName(name))
        throw Failure{LineOf(node), std::string(what) + " name '" + name + "' is not an identifier"};
    return name;
}

bool Importer::Flag(pugi::xml_node node, const char* attribute) const {
    const std::string value = node.attribute(attribute).value();
    if (value.empty() || value == "false")
        return false;
    if (value == "true")
        return true;
    throw Failure{LineOf(node), "bad " + std::string(attribute) + " '" + value + "'"};
}

// An Ecore int: 32 bits.
long Importer::Number(pugi::xml_node node, const char* attribute, long absent) const {
    const char* value = node.attribute(attribute).value();
    if (!*value)
        return absent;
    char* end = nullptr;
    errno = 0;
    const long long number = std::strtoll(value, &end, 10);
    if (errno != 0 || *end || end == value || number < INT_MIN || number > INT_MAX)
        throw Failure{LineOf(node), "bad " + std::string(attribute) + " '" + value + "'"};
    return static_cast<long>(number);
}

MCObject* Importer::Require(MCObject* made, const std::string& what) const {
    if (!made)
        throw Failure{m_nLine, "the class model refused " + what};
    return made;
}

}  // namespace

EcoreImportResult ImportEcore(const char* path) {
    std::ifstream file(path ? path : "", std::ios::binary);
    if (!file.is_open()) {
        EcoreImportResult result;
        result.m_sError = std::string(path ? path : "") + ": cannot read the file";
        return result;
    }
    const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    return ImportEcoreBytes(path, bytes.data(), bytes.size());
}

EcoreImportResult ImportEcoreBytes(const char* name, const char* bytes, std::size_t size) {
    return Importer(name, bytes, size).Run();
}
