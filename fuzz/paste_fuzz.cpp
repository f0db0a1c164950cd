// Pastes arbitrary bytes as a clip buffer into a small class diagram, under its two packages and the
// model, with a converter that merges records into the model's objects for inputs of odd length. Whatever the
// bytes, the paste returns or throws from the EXBase family; a paste that throws leaves the model as it was;
// afterwards every object of the tree is registered under its id, every bound reference leads to a live
// object and every name-space entry to a live info, and nothing lives outside the tree; what the paste
// placed under the first package, copied and pasted into a new package, gives an equal forest (the same
// canonical dump); once the model is expunged no object is left alive.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "fuzz/clip_model.h"
#include "fuzz/tree_dump.h"

namespace {

using ObjectSet = std::unordered_set<const MCObject*>;

// A buffer's head: its token, the source's id and the source's address token, in the widths of a model
// file.
constexpr std::size_t c_nAddressOffset = sizeof(char) + 4;
constexpr std::size_t c_nHeadSize = c_nAddressOffset + 4;

void Require(bool holds) {
    if (!holds)
        std::abort();
}

// The objects in the registry's tables: a reference's target is looked up here, never read through.
ObjectSet LiveSet() {
    ObjectSet live;
    ZVTOrderedVectorT<short> types;
    MCFactoryRegistry::GetObjectTypes(types, ~MCFactoryRegistry::flagProperty);
    for (std::size_t i = 0; i < types.Length(); ++i) {
        ZVTHTableT<MCObject*>* table = nullptr;
        if (MCFactoryRegistry::GetInstances(types[i], table, nullptr) && table) {
            for (ZVTHTableIterT<MCObject*> it(*table); ++it;)
                live.insert(it.Key());
        }
    }
    return live;
}

// What a paste that throws must leave unchanged: which objects there are, where, and of which types.
struct Snapshot {
    CMCensus census;
    std::vector<std::pair<long, long>> placement;  // id and owner id, in walk order
    long live = 0;

    bool operator==(const Snapshot& other) const {
        return census == other.census && placement == other.placement && live == other.live;
    }
};

Snapshot Take(MCObject* model) {
    Snapshot snapshot{ClassModel::Census(model), {}, ClassModel::LiveObjects()};
    for (MCDepthFirstWalker walker(model, nullptr); walker.Traverse();) {
        const MCObject* owner = walker.GetValue()->GetOwner(0, MCItem::rttiExact);
        snapshot.placement.emplace_back(walker.GetValue()->GetId(), owner ? owner->GetId() : 0);
    }
    return snapshot;
}

// The targets of a bound reference; nothing for other properties, whose values are no pointers.
std::vector<MCObject*> BoundTargets(const MCProperty* property) {
    std::vector<MCObject*> targets;
    if (const auto* ref = dynamic_cast<const MCSRef*>(property); ref && ref->IsBound()) {
        targets.push_back(ref->GetValue());
    } else if (const auto* refs = dynamic_cast<const MCVRef*>(property); refs && refs->IsBound()) {
        const ZVTSList<MCObject*> values = refs->GetValue();
        for (std::size_t i = 0; i < values.Entries(); ++i)
            targets.push_back(values.At(i));
    }
    return targets;
}

// Checks the tree under `model` and answers its objects.
ObjectSet CheckTree(MCObject* model) {
    const ObjectSet live = LiveSet();
    ObjectSet tree;
    for (MCDepthFirstWalker walker(model, nullptr); walker.Traverse();) {
        MCObject* object = walker.GetValue();
        Require(live.count(object) && MCObject::ResolveId(object->GetId()) == object);
        tree.insert(object);
        for (MCPropertySetIter it(object->GetPropertySet()); ++it;) {
            for (const MCObject* target : BoundTargets(it.GetValue()))
                Require(!target || live.count(target));
        }
    }
    // A paste places everything under a target, so an object outside the tree is one it lost.
    Require(tree.size() == live.size());
    return tree;
}

// A name space has no way to list its dictionary, but DropInheritedNames calls into every info each
// dictionary below it holds, so the sanitizers see one that is gone (objects live in pools: it is the
// vptr check that fires). What it drops does not matter: the model goes next.
void CheckNameSpaces(const ObjectSet& tree) {
    for (const MCObject* object : tree) {
        if (auto* names = dynamic_cast<MCNameSpace*>(const_cast<MCObject*>(object)))
            names->DropInheritedNames();
    }
}

// Takes a buffer id for the model's object of that id, as a host that pastes a buffer a second time
// would, so that records merge into existing objects; ids it is told of come first.
class SameIdConverter : public MCClipIdConverter {
public:
    explicit SameIdConverter(const ObjectSet& model) : m_rModel(model) {}
    long ConvertId(long id) override {
        const auto told = m_xTold.find(id);
        if (told != m_xTold.end())
            return told->second;
        return m_rModel.count(MCObject::ResolveId(id)) ? id : 0;
    }
    void AddConversion(long oldId, long newId) override { m_xTold[oldId] = newId; }

private:
    const ObjectSet& m_rModel;
    std::map<long, long> m_xTold;
};

// The model's ids are the same for every input, its address is not: an input whose address token is 0
// stands for a paste into the model it was copied from and gets the token of a copy from this one.
void TakeAddressOf(MCObject& model, std::uint8_t* buffer, std::size_t size) {
    if (size < c_nHeadSize ||
        std::any_of(buffer + c_nAddressOffset, buffer + c_nHeadSize, [](std::uint8_t b) { return b != 0; }))
        return;
    ZVTSList<MCObject*> nothing;
    MCClipList copy(nothing, model, MCClipList::modeCopy, nullptr);
    std::vector<std::uint8_t> own(static_cast<std::size_t>(copy.GetBufferSize()));
    copy.CopyBuffer(own.data());
    std::copy(own.begin() + c_nAddressOffset, own.begin() + c_nHeadSize, buffer + c_nAddressOffset);
}

// The host's objects of `ids` that stand directly under `owner`, in the order of `ids`, once each (a
// merged object is listed once per target). A name space or its entry is left out: the package pasted
// into keeps its own, and its entries follow the objects they name.
std::vector<MCObject*> PastedUnder(const ZVTOrderedVectorT<long>& ids, const MCObject* owner) {
    std::vector<MCObject*> pasted;
    ObjectSet listed;
    for (std::size_t i = 0; i < ids.Length(); ++i) {
        MCObject* object = MCObject::ResolveId(ids[i]);
        if (object && object->GetOwner(0, MCItem::rttiExact) == owner &&
            !dynamic_cast<MCNameSpace*>(object) && !dynamic_cast<MCStringInfo*>(object) &&
            listed.insert(object).second)
            pasted.push_back(object);
    }
    return pasted;
}

// How a copy carries the trees under `roots`. A reference to an object outside them is cleared on paste
// (and an association without both its classes is left out of the copy), so the second generation, which
// has none, is what a copy carries as it is; so is it when two objects of one name stand under one owner
// (a paste runs no rules, so a damaged buffer may place them so), as the paste of a copy renames one. An
// undeletable object is bound by name to what the target
// holds and otherwise made anew, where its name may meet the name-space entry that came with it and be
// changed; and an object that refers to another through a property its type never declared (only a
// damaged buffer makes one) has the copy follow it, tell the user (message 607) and bring the target in
// under the referrer when the referrer is reached first: no generation is sure to come out as the one
// before.
enum class Carried { asItIs, fromTheSecondGeneration, notComparable };

Carried HowCarried(const std::vector<MCObject*>& roots) {
    ObjectSet forest;
    for (MCObject* root : roots) {
        for (MCDepthFirstWalker walker(root, nullptr); walker.Traverse();)
            forest.insert(walker.GetValue());
    }
    Carried carried = Carried::asItIs;
    std::set<std::pair<const MCObject*, std::string>> names;
    for (const MCObject* object : forest) {
        if (object->GetFlag(MCItem::itemUndeletable))
            return Carried::notComparable;
        const std::optional<ZVTString> name = mc::Get<ZVTString>(object, MCCodes::pName);
        if (name && !names.emplace(object->GetOwner(0, MCItem::rttiExact), name->str()).second)
            carried = Carried::fromTheSecondGeneration;
        for (MCPropertySetIter it(object->GetPropertySet()); ++it;) {
            const std::vector<MCObject*> targets = BoundTargets(it.GetValue());
            if (!targets.empty() &&
                MCFactoryRegistry::GetClipFlag(object->GetType(), it.GetValue()->GetType()) ==
                    MCFactoryRegistry::clipNoUsage)
                return Carried::notComparable;
            for (const MCObject* target : targets) {
                if (target && !forest.count(target))
                    carried = Carried::fromTheSecondGeneration;
            }
        }
    }
    return carried;
}

// Copies `objects` out of `model` and pastes the copy into a new package of the model; what that paste
// made at level 0. Neither may fail: the buffer is the library's own.
std::vector<MCObject*> CopyPaste(MCObject& model, const std::vector<MCObject*>& objects) {
    ZVTSList<MCObject*> selection;
    for (MCObject* object : objects)
        selection.Append(object);
    MCClipList copy(selection, model, MCClipList::modeCopy, nullptr);
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(copy.GetBufferSize()));
    Require(!bytes.empty());
    copy.CopyBuffer(bytes.data());
    MCObject* package = ClassModel::AddPackage(&model, "Again");
    Require(package != nullptr);
    ZVTSList<MCObject*> targets;
    targets.Append(package);
    ZVTOrderedVectorT<long> ids;
    try {
        MCClipList paste(targets, model, bytes.data(), static_cast<int>(bytes.size()), &ids, nullptr);
    } catch (const EXBase&) {
        Require(false);
    }
    return PastedUnder(ids, package);
}

// What a paste placed under the first package, copied and pasted again, is equal to it when the copy
// carries it as it is; else the second generation, which a copy does carry, must come out equal. A forest
// that no copy is sure to carry unchanged is still copied and pasted, for the other checks.
void CheckCopyRoundTrip(MCObject& model, const std::vector<MCObject*>& pasted) {
    if (pasted.empty())
        return;
    const Carried carried = HowCarried(pasted);
    const std::vector<MCObject*> again = CopyPaste(model, pasted);
    if (carried == Carried::asItIs) {
        RequireSameDump(DumpTrees(pasted), DumpTrees(again));
    } else if (carried == Carried::fromTheSecondGeneration) {
        const std::vector<MCObject*> third = CopyPaste(model, again);
        RequireSameDump(DumpTrees(again), DumpTrees(third));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Lives as long as the process: the registries are not rebuilt for every input.
    static CMSession* session = new CMSession;
    (void)session;
    // Messages of refused edits go to the recorder, not to the terminal.
    HUBScopedMessageHandler quiet;

    // A model per input: whatever a paste did to the last one goes with it.
    const ClipModel built = BuildClipModel();
    const Snapshot before = Take(built.model);
    ZVTSList<MCObject*> targets;
    targets.Append(built.first);
    targets.Append(built.second);
    // A copy of exactly `size` bytes, so that a read past the end is caught, also for an empty input.
    const std::unique_ptr<std::uint8_t[]> buffer(new std::uint8_t[size]);
    std::copy(data, data + size, buffer.get());
    TakeAddressOf(*built.model, buffer.get(), size);
    ZVTOrderedVectorT<long> ids;
    // Inputs of odd length paste with a converter, so that merges are reached too.
    const ObjectSet model = CheckTree(built.model);
    SameIdConverter converter(model);
    bool thrown = false;
    try {
        MCClipList paste(targets, *built.model, buffer.get(), static_cast<int>(size), &ids,
                         size % 2 ? &converter : nullptr);
    } catch (const EXBase&) {
        thrown = true;
    }
    if (thrown)
        Require(Take(built.model) == before);

    const ObjectSet tree = CheckTree(built.model);
    if (thrown) {
        CheckNameSpaces(tree);
    } else {
        // Pasted objects at level 0 and merged ones: all of them stand in the model.
        for (std::size_t i = 0; i < ids.Length(); ++i)
            Require(tree.count(MCObject::ResolveId(ids[i])) == 1);
        // Before the name-space check, which drops names.
        CheckCopyRoundTrip(*built.model, PastedUnder(ids, built.first));
        CheckNameSpaces(CheckTree(built.model));
    }

    // A merge may have set itemUndeletable on the model, which only an owner's end overrides.
    built.model->SetFlag(MCItem::itemUndeletable, false);
    built.model->Expunge(true);
    Require(ClassModel::LiveObjects() == 0);
    return 0;
}
