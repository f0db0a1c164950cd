#ifndef FUZZ_TREE_DUMP_H
#define FUZZ_TREE_DUMP_H

// A canonical text of the trees under some roots, for the round-trip oracles of the fuzz targets: two
// trees made apart (a model and its restored save, a paste and the paste of its copy) get other ids, so
// every object stands as its number in walk order, and a reference as the number of its target.

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>

#include "examples/classmodel/ClassModel.h"

namespace fuzz_detail {

// The object flags a record stores; these two belong to the running model.
constexpr unsigned c_uUnstoredFlags = MCItem::itemTreeExpunge | MCItem::itemExpunging;

// Two hexadecimal digits per byte.
inline std::string Hex(const std::string& bytes) {
    std::string out;
    char digits[3];
    for (const char byte : bytes) {
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
        out += digits;
    }
    return out;
}

}  // namespace fuzz_detail

/// The order in which a dump lists an owner's ownees, each before its own ownees.
enum class Siblings {
    youngestFirst,  ///< as the depth-first walker and so a save or a copy writes them
    oldestFirst     ///< the reverse, as a restore lists what it read (it appends in file order)
};

/// One line per object of the trees under `roots`, owners before ownees: its number, type, stored flags,
/// its owner's number and its ownee count, then its properties by type code. A value is its stored bytes;
/// a reference names its target's number, and "-" for no target or one outside the trees, which no save
/// or copy of these trees can carry; the id property is left out, the line's number stands for it.
inline std::string DumpTrees(const std::vector<MCObject*>& roots, Siblings order = Siblings::youngestFirst) {
    std::unordered_map<const MCObject*, std::size_t> number;
    std::vector<MCObject*> objects;
    for (MCObject* root : roots) {
        std::vector<MCObject*> stack{root};
        while (!stack.empty()) {
            MCObject* object = stack.back();
            stack.pop_back();
            number.emplace(object, objects.size());
            objects.push_back(object);
            std::vector<MCObject*> ownees;
            for (MCObject* ownee = object->GetFirstOwnee(); ownee; ownee = ownee->GetNextSibling())
                ownees.push_back(ownee);
            // The stack gives back last what goes in first.
            if (order == Siblings::oldestFirst)
                stack.insert(stack.end(), ownees.rbegin(), ownees.rend());
            else
                stack.insert(stack.end(), ownees.begin(), ownees.end());
        }
    }
    const auto name = [&](const MCObject* object) {
        const auto found = object ? number.find(object) : number.end();
        return found == number.end() ? std::string("-") : "#" + std::to_string(found->second);
    };
    std::string out;
    for (std::size_t i = 0; i < objects.size(); ++i) {
        MCObject* object = objects[i];
        out += "#" + std::to_string(i) + " t" + std::to_string(object->GetType()) + " f" +
               std::to_string((object->GetFlags() & ~fuzz_detail::c_uUnstoredFlags)) + " o" +
               name(object->GetOwner(0, MCItem::rttiExact)) + " n" + std::to_string(object->GetOwneeCount());
        std::map<short, std::string> values;
        for (MCPropertyListIter it(object, nullptr, nullptr); ++it;) {
            MCProperty* property = it.GetValue();
            std::string& value = values[property->GetType()];
            if (property->GetType() == MCCodes::pId) {
                value = "id";
            } else if (const auto* ref = dynamic_cast<const MCSRef*>(property)) {
                value = name(ref->IsBound() ? ref->GetValue() : nullptr);
            } else if (const auto* refs = dynamic_cast<const MCVRef*>(property)) {
                // A list keeps its order; an entry that cannot be carried goes, as a paste drops it.
                value = "[";
                const ZVTSList<MCObject*> targets =
                    refs->IsBound() ? refs->GetValue() : ZVTSList<MCObject*>();
                for (std::size_t t = 0; t < targets.Entries(); ++t) {
                    if (name(targets.At(t)) != "-")
                        value += name(targets.At(t)) + " ";
                }
                value += "]";
            } else {
                std::stringstream bytes;
                {
                    MCStream stream(bytes, ZVTStream::binary);
                    property->SaveTo(stream);
                }
                value = fuzz_detail::Hex(bytes.str());
            }
        }
        for (const auto& [type, value] : values)
            out += " p" + std::to_string(type) + "=" + value;
        out += "\n";
    }
    return out;
}

/// Aborts, after printing the first line that differs, when two dumps differ: the oracle's finding.
inline void RequireSameDump(const std::string& expected, const std::string& actual) {
    if (expected == actual)
        return;
    std::size_t at = 0;
    while (at < expected.size() && at < actual.size() && expected[at] == actual[at])
        ++at;
    // The start of the line that holds the first difference.
    const std::size_t newline = at == 0 ? std::string::npos : expected.rfind('\n', at - 1);
    const std::size_t line = newline == std::string::npos ? 0 : newline + 1;
    std::fprintf(stderr, "dumps differ\nexpected: %s\nactual:   %s\n",
                 expected.substr(line, expected.find('\n', line) - line).c_str(),
                 actual.substr(line, actual.find('\n', line) - line).c_str());
    std::abort();
}

#endif
