#include "examples/classmodel/ClassModelButler.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <utility>

#include "ModelCore/ZVFWMC/EXBase.h"
#include "examples/classmodel/ClassModel.h"
#include "platform/ZVMTemplate.h"

namespace {

// Every keyword and alternative token of C++17, sorted for the binary search.
const char* const c_apcCppKeywords[] = {
    "alignas",   "alignof",  "and",      "and_eq",    "asm",          "auto",          "bitand",
    "bitor",     "bool",     "break",    "case",      "catch",        "char",          "char16_t",
    "char32_t",  "class",    "compl",    "const",     "const_cast",   "constexpr",     "continue",
    "decltype",  "default",  "delete",   "do",        "double",       "dynamic_cast",  "else",
    "enum",      "explicit", "export",   "extern",    "false",        "float",         "for",
    "friend",    "goto",     "if",       "inline",    "int",          "long",          "mutable",
    "namespace", "new",      "noexcept", "not",       "not_eq",       "nullptr",       "operator",
    "or",        "or_eq",    "private",  "protected", "public",       "register",      "reinterpret_cast",
    "return",    "short",    "signed",   "sizeof",    "static",       "static_assert", "static_cast",
    "struct",    "switch",   "template", "this",      "thread_local", "throw",         "true",
    "try",       "typedef",  "typeid",   "typename",  "union",        "unsigned",      "using",
    "virtual",   "void",     "volatile", "wchar_t",   "while",        "xor",           "xor_eq"};

bool IsCppKeyword(const std::string& word) {
    return std::binary_search(std::begin(c_apcCppKeywords), std::end(c_apcCppKeywords), word.c_str(),
                              [](const char* a, const char* b) { return std::strcmp(a, b) < 0; });
}

// An iteration over a list its handler made, so nothing the template reads can move it.
class ListIteration : public MCIterProxy {
public:
    ListIteration(const ZVTString& name, const ZVTSList<MCObject*>& objects)
        : MCIterProxy(name, m_xWalk, true), m_xObjects(objects), m_xWalk(&m_xObjects) {}
    MCObject* GetCurrentObject() override { return m_xWalk.GetValue(); }

private:
    ZVTSList<MCObject*> m_xObjects;
    MCVRefIter m_xWalk;
};

// The iterations of the class model: what they list is up to the derived class; starting, the empty
// case and the break-on variable work as ForEach's do.
class ListHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* /*result*/) override {
        const long needed = ArgumentsNeeded();
        if (!arguments || arguments->GetCount() < needed)
            return false;
        const short type = MCFactoryRegistry::Lookup((*arguments)[0], ZVTString());
        MCObject* current = butler->GetCurrentContext(0);
        if (type == 0 || !current)
            return false;
        ZVTSList<MCObject*> objects;
        if (!List(current, type, *arguments, objects) || objects.IsEmpty())
            return false;
        auto iteration = std::make_unique<ListIteration>(name, objects);
        if (arguments->GetCount() > needed)
            iteration->SetBreakOn((*arguments)[needed]);
        butler->PushIter(iteration.release());
        return true;
    }

protected:
    virtual long ArgumentsNeeded() const { return 1; }
    // Fills `objects`; false when the arguments name nothing to list.
    virtual bool List(MCObject* current, short type, const ZVMStringList& arguments,
                      ZVTSList<MCObject*>& objects) const = 0;
};

class OwnedHandler : public ListHandler {
    bool List(MCObject* current, short type, const ZVMStringList&,
              ZVTSList<MCObject*>& objects) const override {
        for (MCObject* ownee : mc::Ownees(current)) {
            if (ownee->IsType(type, MCItem::rttiDerived))
                objects.Append(ownee);
        }
        return true;
    }
};

class InTreeHandler : public ListHandler {
    bool List(MCObject* current, short type, const ZVMStringList&,
              ZVTSList<MCObject*>& objects) const override {
        std::vector<MCObject*> open;
        auto pushOwnees = [&open](MCObject* owner) {
            const std::size_t first = open.size();
            for (MCObject* ownee : mc::Ownees(owner))
                open.push_back(ownee);
            std::reverse(open.begin() + static_cast<std::ptrdiff_t>(first), open.end());
        };
        pushOwnees(current);
        while (!open.empty()) {
            MCObject* object = open.back();
            open.pop_back();
            if (object->IsType(type, MCItem::rttiDerived))
                objects.Append(object);
            pushOwnees(object);
        }
        return true;
    }
};

// The holders of a reference subscribe to its target, so the target's subscribers are the candidates:
// no walk over the model.
class ReferrerHandler : public ListHandler {
    long ArgumentsNeeded() const override { return 2; }
    bool List(MCObject* current, short type, const ZVMStringList& arguments,
              ZVTSList<MCObject*>& objects) const override {
        const short reference = MCFactoryRegistry::Lookup(arguments[1], ZVTString());
        if (reference == 0)
            return false;
        std::vector<MCObject*> found;
        MCSubscriberListIter subscribers(current);
        while (++subscribers) {
            auto* holder = dynamic_cast<MCObject*>(subscribers.GetValue());
            if (!holder || !holder->IsType(type, MCItem::rttiDerived))
                continue;
            const auto* property = dynamic_cast<const MCSRef*>(holder->FindProperty(reference, false));
            if (property && property->IsBound() && property->GetValue() == current)
                found.push_back(holder);
        }
        std::sort(found.begin(), found.end(),
                  [](MCObject* a, MCObject* b) { return a->GetId() < b->GetId(); });
        found.erase(std::unique(found.begin(), found.end()), found.end());
        for (MCObject* holder : found)
            objects.Append(holder);
        return true;
    }
};

class CppNameHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/, ZVMStringList* arguments,
                           ZVTString* result) override {
        ZVTString value;
        if (!result || !arguments || arguments->GetCount() < 1 ||
            !RetrieveProperty(butler->GetCurrentContext(0), (*arguments)[0], value))
            return false;
        std::string identifier = value.str();
        for (char& c : identifier) {
            if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '_'))
                c = '_';
        }
        if (identifier.empty() || std::isdigit(static_cast<unsigned char>(identifier[0])))
            identifier.insert(0, "_");
        if (IsCppKeyword(identifier))
            identifier += '_';
        *result = identifier;
        return true;
    }
};

OwnedHandler c_xOwned;
InTreeHandler c_xInTree;
ReferrerHandler c_xReferrer;
CppNameHandler c_xCppName;

bool ReadFile(const std::string& path, std::string& text) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    std::ostringstream buffer;
    buffer << in.rdbuf();
    text = buffer.str();
    return true;
}

bool LoadTemplate(const std::string& path, ZVMTemplate& parsed, std::string& error) {
    std::string text;
    if (!ReadFile(path, text)) {
        error = path + ": cannot read the template";
        return false;
    }
    ZVMTemplateError failure;
    if (!parsed.Parse(text, failure)) {
        error = path + ":" + failure.Format();
        return false;
    }
    return true;
}

bool ExpandTo(const ZVMTemplate& parsed, const std::string& templatePath, MCObject* anchor,
              const std::string& outPath, std::string& error) {
    CMDataButler butler(anchor);
    std::string text;
    ZVMTemplateError failure;
    try {
        if (!parsed.Expand(butler, text, failure)) {
            error = templatePath + ":" + failure.Format();
            return false;
        }
    } catch (const EXBase& raised) {
        // A macro on the context after the template popped the model itself, for one.
        error = templatePath + ": the expansion stopped: " + raised.what();
        return false;
    }
    std::ofstream out(outPath, std::ios::binary);
    if (!(out << text) || !out.flush()) {
        error = outPath + ": cannot write the file";
        return false;
    }
    return true;
}

}  // namespace

CMDataButler::CMDataButler(MCObject* anchor) : MCDataButler(anchor) {
    AddHandler("ForEachOwned", &c_xOwned);
    AddHandler("ForEachInTree", &c_xInTree);
    AddHandler("ForEachReferrer", &c_xReferrer);
    AddHandler("CppName", &c_xCppName);
}

bool CMCppGenerator::Generate(MCObject* model, const std::string& templateDir, const std::string& outDir,
                              std::vector<std::string>& written, std::string& error) {
    const std::string typesTemplate = templateDir + "/cpp_types.tpl";
    const std::string classTemplate = templateDir + "/cpp_class.tpl";
    ZVMTemplate types;
    ZVMTemplate cls;
    if (!LoadTemplate(typesTemplate, types, error) || !LoadTemplate(classTemplate, cls, error))
        return false;

    // Every header is named by its class, so two classes of one name would write one file twice.
    std::map<std::string, MCObject*> classes;
    std::vector<MCObject*> open{model};
    while (!open.empty()) {
        MCObject* object = open.back();
        open.pop_back();
        for (MCObject* ownee : mc::Ownees(object))
            open.push_back(ownee);
        if (!object->IsType(CMCodes::tClass, MCItem::rttiExact))
            continue;
        const std::string name = ClassModel::NameOf(object);
        if (!classes.emplace(name, object).second) {
            error = "two classes are named '" + name + "': their headers would be one file";
            return false;
        }
    }

    const std::string typesHeader = outDir + "/model_types.h";
    if (!ExpandTo(types, typesTemplate, model, typesHeader, error))
        return false;
    written.push_back(typesHeader);
    for (const auto& entry : classes) {
        const std::string header = outDir + "/" + entry.first + ".h";
        if (!ExpandTo(cls, classTemplate, entry.second, header, error))
            return false;
        written.push_back(header);
    }
    return true;
}
