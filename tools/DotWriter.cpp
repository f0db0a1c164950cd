#include "tools/DotWriter.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "examples/classmodel/ClassModel.h"

// Both graphs are written on explicit stacks, so that a tree of any depth costs no call depth; siblings
// of a class diagram are sorted by name, so that a model gives the same picture however its ownees were
// ordered by the restore.

namespace {

using C = CMCodes;

constexpr size_t c_nIndent = 4;
// Graphviz's fonts are looked up by name; this one is on every installation.
const char c_acFont[] = "Helvetica";
const char c_acNodeFontSize[] = "10";
const char c_acEdgeFontSize[] = "9";
// An attribute without an upper bound holds one value.
constexpr long c_nSingleValue = 1;
// The class model's Integer flags (Abstract, Interface, Containment) say yes with 1.
constexpr long c_nFlagSet = 1;

std::string Quoted(const std::string& text, bool record = false) {
    return "\"" + DotWriter::Escape(text, record) + "\"";
}

std::string TypeName(short code) {
    const ZVTString name = MCFactoryRegistry::Lookup(code);
    return name.IsNull() ? std::to_string(code) : name.str();
}

std::string Multiplicity(long upperBound) {
    return upperBound == C::upperUnbounded ? "*" : std::to_string(upperBound);
}

// The length of the UTF-8 sequence that starts at `at`, 0 when the bytes there are none (overlong forms
// and surrogates included, which Graphviz refuses).
size_t Utf8Length(const std::string& text, size_t at) {
    const auto lead = static_cast<unsigned char>(text[at]);
    if (lead < 0x80)
        return 1;
    const size_t length = (lead >> 5) == 0x6 ? 2 : (lead >> 4) == 0xE ? 3 : (lead >> 3) == 0x1E ? 4 : 0;
    if (length == 0 || at + length > text.size())
        return 0;
    unsigned long point = lead & (0x7F >> length);
    for (size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[at + i]);
        if ((next & 0xC0) != 0x80)
            return 0;
        point = (point << 6) | (next & 0x3F);
    }
    const unsigned long smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (point < smallest[length] || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF))
        return 0;
    return length;
}

// The bound targets of the reference or reference list `type` of `object`, in its order, nulls left out;
// none for any other property.
std::vector<MCObject*> Targets(const MCObject* object, short type) {
    std::vector<MCObject*> targets;
    if (MCObject* target = mc::Get<MCObject*>(object, type).value_or(nullptr))
        targets.push_back(target);
    for (MCObject* target : mc::Targets(object, type)) {
        if (target)
            targets.push_back(target);
    }
    return targets;
}

// The ownees of `owner` by name; equal names keep their order.
std::vector<MCObject*> OwneesByName(const MCObject* owner) {
    std::vector<std::pair<std::string, MCObject*>> named;
    for (MCObject* ownee : mc::Ownees(owner))
        named.emplace_back(ClassModel::NameOf(ownee), ownee);
    std::stable_sort(named.begin(), named.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<MCObject*> ownees;
    for (const auto& entry : named)
        ownees.push_back(entry.second);
    return ownees;
}

// Node names in the order the nodes are written: n1, n2, ...
class NodeNames {
public:
    const std::string& Add(const MCObject* object) {
        return m_xNames.emplace(object, "n" + std::to_string(m_xNames.size() + 1)).first->second;
    }
    const std::string* Find(const MCObject* object) const {
        const auto found = m_xNames.find(object);
        return found == m_xNames.end() ? nullptr : &found->second;
    }

private:
    std::unordered_map<const MCObject*, std::string> m_xNames;
};

std::string Head(const std::string& name, const std::string& graph, const char* shape) {
    const std::string font = std::string("fontname=\"") + c_acFont + "\"";
    return "digraph " + Quoted(name) + " {\n    graph [" + graph + font + "];\n    node [shape=" + shape +
           ", " + font + ", fontsize=" + c_acNodeFontSize + "];\n    edge [" + font +
           ", fontsize=" + c_acEdgeFontSize + "];\n";
}

// A record's first field: the stereotype, if any, above the name.
std::string Title(const char* stereotype, const MCObject* object) {
    const std::string title = DotWriter::Escape(ClassModel::NameOf(object), true);
    return stereotype ? std::string("\u00ab") + stereotype + "\u00bb\\n" + title : title;
}

std::string ClassLabel(const MCObject* cls) {
    const char* stereotype = ClassModel::IntegerOf(cls, C::pInterface) == c_nFlagSet  ? "interface"
                             : ClassModel::IntegerOf(cls, C::pAbstract) == c_nFlagSet ? "abstract"
                                                                                      : nullptr;
    std::string attributes;
    for (const MCObject* attribute : OwneesByName(cls)) {
        if (attribute->GetType() != C::tAttribute)
            continue;
        const std::vector<MCObject*> type = Targets(attribute, C::pAttributeType);
        std::string line =
            ClassModel::NameOf(attribute) + " : " +
            (type.empty() ? ClassModel::StringOf(attribute, C::pTypeName) : ClassModel::NameOf(type.front()));
        const long upperBound = ClassModel::IntegerOf(attribute, C::pUpperBound, c_nSingleValue);
        if (upperBound != c_nSingleValue)
            line += " [" + Multiplicity(upperBound) + "]";
        attributes += DotWriter::Escape(line, true) + "\\l";
    }
    return "{" + Title(stereotype, cls) + "|" + attributes + "}";
}

std::string EnumLabel(const MCObject* enumeration) {
    std::vector<std::pair<long, const MCObject*>> literals;
    for (const MCObject* literal : OwneesByName(enumeration)) {
        if (literal->GetType() == C::tEnumLiteral)
            literals.emplace_back(ClassModel::IntegerOf(literal, C::pLiteralValue), literal);
    }
    std::stable_sort(literals.begin(), literals.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::string lines;
    for (const auto& [value, literal] : literals)
        lines += DotWriter::Escape(ClassModel::NameOf(literal) + " = " + std::to_string(value), true) + "\\l";
    return "{" + Title("enumeration", enumeration) + "|" + lines + "}";
}

struct Edge {
    const MCObject* m_pxFrom;
    const MCObject* m_pxTo;
    std::string m_sAttributes;
};

std::string AssociationAttributes(const MCObject* association) {
    std::string attributes = "arrowhead=vee";
    if (ClassModel::IntegerOf(association, C::pContainment) == c_nFlagSet)
        attributes += ", arrowtail=diamond, dir=both";
    attributes += ", label=" + Quoted(ClassModel::NameOf(association));
    if (association->FindProperty(C::pUpperBound, false))
        attributes +=
            ", headlabel=" + Quoted(Multiplicity(ClassModel::IntegerOf(association, C::pUpperBound)));
    return attributes;
}

}  // namespace

std::string DotWriter::Write(MCObject* root) {
    if (!root)
        return "digraph \"\" {\n}\n";
    return root->GetType() == C::tModel ? ClassDiagram(root) : OwnerTree(root);
}

std::string DotWriter::ClassDiagram(MCObject* model) {
    const std::string name = ClassModel::NameOf(model);
    std::string out = Head(name, "rankdir=BT, labelloc=t, label=" + Quoted(name) + ", ", "record");
    NodeNames nodes;
    std::vector<Edge> edges;
    int clusters = 0;
    // The members of each open cluster, the model's first, and how many have been written.
    std::vector<std::pair<std::vector<MCObject*>, size_t>> open;
    open.emplace_back(OwneesByName(model), 0);
    while (!open.empty()) {
        auto& [members, next] = open.back();
        if (next == members.size()) {
            open.pop_back();
            if (!open.empty())
                out += std::string(c_nIndent * open.size(), ' ') + "}\n";
            continue;
        }
        MCObject* member = members[next++];
        const std::string indent(c_nIndent * open.size(), ' ');
        switch (member->GetType()) {
            case C::tPackage:
                // Bottom to top, a cluster's "b" is its top edge, where the package's name belongs.
                out += indent + "subgraph cluster_" + std::to_string(++clusters) + " {\n" + indent +
                       std::string(c_nIndent, ' ') + "label=" + Quoted(ClassModel::NameOf(member)) +
                       "; labelloc=b;\n";
                open.emplace_back(OwneesByName(member), 0);
                break;
            case C::tClass:
                out += indent + nodes.Add(member) + " [label=\"" + ClassLabel(member) + "\"];\n";
                for (const MCObject* superclass : Targets(member, C::pSuperclasses))
                    edges.push_back({member, superclass, "arrowhead=empty"});
                break;
            case C::tEnum:
                out += indent + nodes.Add(member) + " [label=\"" + EnumLabel(member) + "\"];\n";
                break;
            case C::tDataType:
                out += indent + nodes.Add(member) + " [label=\"{" + Title("datatype", member) + "}\"];\n";
                break;
            case C::tAssociation: {
                const std::vector<MCObject*> endA = Targets(member, C::pEndA);
                const std::vector<MCObject*> endB = Targets(member, C::pEndB);
                if (!endA.empty() && !endB.empty())
                    edges.push_back({endA.front(), endB.front(), AssociationAttributes(member)});
                break;
            }
            default:
                break;  // name spaces and what else a host hangs in
        }
    }
    for (const Edge& edge : edges) {
        const std::string* from = nodes.Find(edge.m_pxFrom);
        const std::string* to = nodes.Find(edge.m_pxTo);
        if (from && to)
            out += std::string(c_nIndent, ' ') + *from + " -> " + *to + " [" + edge.m_sAttributes + "];\n";
    }
    return out + "}\n";
}

std::string DotWriter::OwnerTree(MCObject* root) {
    std::string out = Head(ClassModel::NameOf(root), "", "box");
    const std::string indent(c_nIndent, ' ');
    NodeNames nodes;
    auto label = [](const MCObject* object) {
        const std::string name = ClassModel::NameOf(object);
        return Quoted(TypeName(object->GetType()) + "\n" +
                      (name.empty() ? "#" + std::to_string(object->GetId()) : name));
    };
    struct Reference {
        const MCObject* m_pxFrom;
        short m_sType;
        const MCObject* m_pxTo;
    };
    std::vector<Reference> references;
    // Depth first with each object's owner, the oldest ownee on top.
    std::vector<std::pair<MCObject*, const std::string*>> pending{{root, nullptr}};
    while (!pending.empty()) {
        const auto [object, owner] = pending.back();
        pending.pop_back();
        const std::string& node = nodes.Add(object);
        out += indent + node + " [label=" + label(object) + "];\n";
        if (owner)
            out += indent + *owner + " -> " + node + ";\n";

        std::vector<short> referenceTypes;
        for (const MCProperty* property : mc::Properties(object)) {
            if (property->IsReference())
                referenceTypes.push_back(property->GetType());
        }
        std::sort(referenceTypes.begin(), referenceTypes.end());
        for (short type : referenceTypes) {
            for (const MCObject* target : Targets(object, type))
                references.push_back({object, type, target});
        }

        const size_t first = pending.size();
        for (MCObject* ownee : mc::Ownees(object))
            pending.emplace_back(ownee, &node);
        std::reverse(pending.begin() + static_cast<std::ptrdiff_t>(first), pending.end());
    }
    for (const Reference& reference : references) {
        const std::string* target = nodes.Find(reference.m_pxTo);
        if (!target) {
            target = &nodes.Add(reference.m_pxTo);
            out += indent + *target + " [label=" + label(reference.m_pxTo) + ", style=dashed];\n";
        }
        out += indent + *nodes.Find(reference.m_pxFrom) + " -> " + *target +
               " [style=dashed, label=" + Quoted(TypeName(reference.m_sType)) + "];\n";
    }
    return out + "}\n";
}

std::string DotWriter::Escape(const std::string& text, bool record) {
    constexpr std::string_view c_xRecordSyntax = "{}|<>";
    std::string out;
    for (size_t at = 0; at < text.size();) {
        const char c = text[at];
        if (c == '\r' || c == '\n') {
            out += "\\n";
            at += c == '\r' && at + 1 < text.size() && text[at + 1] == '\n' ? 2 : 1;
        } else if (c == '"' || c == '\\' || (record && c_xRecordSyntax.find(c) != std::string_view::npos)) {
            out += '\\';
            out += c;
            ++at;
        } else if ((c >= 0 && c < ' ') || c == '\x7f') {
            out += ' ';
            ++at;
        } else if (const size_t length = Utf8Length(text, at)) {
            out.append(text, at, length);
            at += length;
        } else {
            out += '?';
            ++at;
        }
    }
    return out;
}
