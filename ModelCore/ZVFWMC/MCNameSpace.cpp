#include "ModelCore/ZVFWMC/MCNameSpace.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <unordered_set>
#include <utility>
#include <vector>

#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCEndsPrivate.h"
#include "ModelCore/ZVFWMC/MCEvent.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCNotification.h"
#include "ModelCore/ZVFWMC/MCObjectSem.h"
#include "ModelCore/ZVFWMC/MCPropertyAccessor.h"
#include "ModelCore/ZVFWMC/MCPropertySemantics.h"

namespace {

ZVTBoolean ReadName(const MCObject* object, ZVTString& name) {
    MCSPropertyRawAccessorT<ZVTString> accessor;
    if (!object || !object->GetProperty(MCCodes::pName, accessor))
        return false;
    name = accessor.GetValue();
    return true;
}

MCObject* RefValue(const MCProperty* property) {
    const auto* ref = dynamic_cast<const MCSRef*>(property);
    // A reference still holding a stored id (a restore that failed before resolving) names nothing.
    return ref && ref->IsBound() ? ref->GetValue() : nullptr;
}

ZVTSList<MCObject*> BoundEntries(const MCVRef& list) {
    return list.IsBound() ? list.GetValue() : ZVTSList<MCObject*>();
}

// The name spaces a walk has been to, so that a ring (which a damaged file can make and no edit can) ends
// the walk. Short walks allocate nothing.
class Visited {
public:
    // False when `space` was entered before.
    bool Enter(const MCObject* space) {
        for (std::size_t i = 0; i < m_nNear; ++i) {
            if (m_apNear[i] == space)
                return false;
        }
        if (m_nNear < c_nNear) {
            m_apNear[m_nNear++] = space;
            return true;
        }
        return m_xFar.insert(space).second;
    }

private:
    static constexpr std::size_t c_nNear = 16;
    const MCObject* m_apNear[c_nNear] = {};
    std::size_t m_nNear = 0;
    std::unordered_set<const MCObject*> m_xFar;
};

// Moves a name space between the child lists of its old and new ancestor as property 583 changes.
class MCAncestorNameSpacePS : public MCPropertySemantic {
public:
    result Fire(mode nMode, MCObject* object, MCProperty* property,
                MCPropertySemanticContext* context) override {
        MCActiveAccessor* active = context ? context->GetActiveAccessor() : nullptr;
        auto* accessor = active ? dynamic_cast<MCSRefAccessor*>(active->m_pxAccessor) : nullptr;
        if (!accessor)
            return resultContinue;
        if (nMode == PreEdit) {
            // A name space under itself would make its branch a ring.
            auto* nameSpace = dynamic_cast<MCNameSpace*>(object);
            if ((active->m_lFlags & (MCPropertyAccessor::accessAdd | MCPropertyAccessor::accessReplace)) &&
                nameSpace && nameSpace->Encloses(dynamic_cast<MCNameSpace*>(accessor->GetValue())))
                return resultRefused;
            if (MCObject* oldAncestor = RefValue(property)) {
                if (nameSpace)
                    nameSpace->DropInheritedNames();
                MCVRefRawAccessor remove(object);
                oldAncestor->SetProperty(MCCodes::pNameSpaces, remove, MCPropertyAccessor::accessRemove);
            }
        } else if (nMode == PostEdit) {
            MCObject* newAncestor = accessor->GetValue();
            if (newAncestor &&
                (active->m_lFlags & (MCPropertyAccessor::accessAdd | MCPropertyAccessor::accessReplace))) {
                MCVRefRawAccessor add(object);
                newAncestor->SetProperty(MCCodes::pNameSpaces, add, MCPropertyAccessor::accessAdd);
            }
        }
        return resultContinue;
    }
    unsigned long GetInterests() const override { return PreEdit | PostEdit; }
};

// Keeps the info list of a name space and lets the name go before the info does.
class MCStringInfoOS : public MCObjectSem {
public:
    result Fire(mode nMode, MCObject* object, MCObjectSemContext* /*context*/) override {
        if (!object)
            return resultContinue;
        MCObject* owner = object->GetOwner(0, MCItem::rttiExact);
        if (nMode == PostCreation) {
            if (owner) {
                MCVRefAccessor add(object);
                owner->SetProperty(MCCodes::pStringInfoList, add, MCPropertyAccessor::accessAdd);
            }
        } else if (nMode == PreDestructon) {
            if (owner) {
                MCVRefAccessor remove(object);
                owner->SetProperty(MCCodes::pStringInfoList, remove, MCPropertyAccessor::accessRemove);
            }
            MCSRefAccessor none(nullptr);
            object->SetProperty(MCCodes::pStringInfoObject, none, MCPropertyAccessor::accessAdd);
        }
        return resultContinue;
    }
    unsigned long GetInterests() const override { return PostCreation | PreDestructon; }
};

// Keeps the dictionaries in step with property 305: out before a change, in after it, and rebuilt from
// the saved infos after a restore.
class MCStringInfoObjectPS : public MCPropertySemantic {
public:
    result Fire(mode nMode, MCObject* object, MCProperty* property,
                MCPropertySemanticContext* /*context*/) override {
        auto* info = dynamic_cast<MCStringInfo*>(object);
        if (!info)
            return resultRefused;
        if (!dynamic_cast<MCSRef*>(property))
            return resultContinue;
        auto* nameSpace = dynamic_cast<MCNameSpace*>(object->GetOwner(0, MCItem::rttiExact));
        if (!nameSpace)
            return resultRefused;
        MCObject* named = RefValue(property);
        ZVTString name;
        // What leaves is the name the info was entered under: the object may since have been renamed or
        // lost its name without Delete, and its current name would leave the entry pointing at a dead info.
        const bool leaving = nMode == PreEdit || nMode == PreDestructon || nMode == PreCalculateData;
        if (leaving && !info->GetEnteredName().IsNull())
            name = info->GetEnteredName();
        else if (!named || !ReadName(named, name))
            return resultContinue;
        switch (nMode) {
            case PreEdit:
            case PreDestructon:
            case PreCalculateData:
                nameSpace->DeleteFromDictionary(name);
                break;
            case PostEdit:
            case PostCalculateData:
                nameSpace->InsertIntoDictionary(name, info);
                break;
            default:
                break;
        }
        return resultContinue;
    }
    unsigned long GetInterests() const override {
        return PreEdit | PostEdit | PreDestructon | PreCalculateData | PostCalculateData;
    }
};

// A dying object takes its name with it, in every name space that holds it.
class MCSubjectDestroyedN : public MCNotification {
public:
    result Notify(MCObject* object, MCEvent& event) override {
        MCEventUser hold(event);
        // The subject may be half taken down: compare through the info's side, without casting it.
        auto* info = dynamic_cast<MCStringInfo*>(object);
        MCObject* named = info ? info->GetObjectA() : nullptr;
        if (!named || static_cast<MCSubject*>(named) != event.GetSubject())
            return resultNotHandled;
        info->Expunge(true);
        return resultHandled;
    }
};

MCAncestorNameSpacePS c_xAncestorNameSpacePS;
MCStringInfoOS c_xStringInfoOS;
MCStringInfoObjectPS c_xStringInfoObjectPS;
MCSubjectDestroyedN c_xSubjectDestroyedN;

}  // namespace

// ---- MCNameSpace

MCNameSpace::MCNameSpace(short type, MCFactorySignature& signature, MCFactoryContext* context)
    : MCObject(type, signature, context),
      m_xStringInfoList(MCCodes::pStringInfoList, this),
      m_xNameSpaces(MCCodes::pNameSpaces, this),
      m_xAncestorNameSpace(MCCodes::pAncestorNameSpace, this),
      m_xValidTypeList(MCCodes::pValidTypeList, this),
      m_xDictionary(ZVTString::Hash) {
    RegisterRules(context);
}

MCNameSpace::MCNameSpace(MCObject* owner, MCFactoryContext* context)
    : MCObject(c_sType, owner, context),
      m_xStringInfoList(MCCodes::pStringInfoList, this),
      m_xNameSpaces(MCCodes::pNameSpaces, this),
      m_xAncestorNameSpace(MCCodes::pAncestorNameSpace, this),
      m_xValidTypeList(MCCodes::pValidTypeList, this),
      m_xDictionary(ZVTString::Hash) {
    RegisterRules(context);
}

MCNameSpace::~MCNameSpace() = default;

void MCNameSpace::RegisterRules(MCFactoryContext* context) {
    if (!context)
        return;
    // Rules first, linked under the level above; RegisterLevel then hands this level to the next.
    MCPropertySemanticRegistry::Register(c_sType, context, MCCodes::pAncestorNameSpace,
                                         &c_xAncestorNameSpacePS, false, false);
    RegisterLevel(c_sType, context);
}

ZVTBoolean MCNameSpace::IsType_(short type) const {
    return MCObject::IsType_(type);
}

MCNameSpace* MCNameSpace::Ancestor() const {
    return dynamic_cast<MCNameSpace*>(RefValue(&m_xAncestorNameSpace));
}

ZVTBoolean MCNameSpace::Encloses(MCNameSpace* space) {
    return space && space->WalkUp([this](MCNameSpace& above, std::size_t) { return &above == this; });
}

ZVTBoolean MCNameSpace::Insert(MCObject* object, char separator, long maxLength, ZVTBoolean makeUnique) {
    ZVTString name;
    if (!object || !ReadName(object, name))
        return false;
    if (!IsValidFor(object->GetType()) || name.IsNull())
        return false;

    // The rename and the info's creation run host rules, which may expunge the object.
    const mc_detail::HeldObject held(object);
    long count = 1;
    ZVTBoolean result = true;
    if (!makeUnique) {
        if (Contains(name))
            return false;
    } else if (TestAndSetCount_(name, count)) {
        MCStringInfo* baseInfo = nullptr;
        m_xDictionary.Find(name, baseInfo);
        result = false;
        ZVTString candidate;
        do {
            candidate = name;
            ++count;
            ZVTString suffix(count, 10);
            if (separator != 0)
                suffix.Prepend(separator);
            if (maxLength != 0) {
                // A maxLength shorter than the suffix leaves the number alone.
                const long room = std::max(0L, maxLength - suffix.Length());
                if (candidate.Length() > room)
                    candidate.Remove(room, candidate.Length() - room);
            }
            candidate += suffix;
        } while (Contains(candidate));
        if (baseInfo)
            baseInfo->SetCount(count);
        name = candidate;
        // Through the active accessor, so the rename passes the ordinary rules; a refusal is not checked.
        MCSPropertyAccessorT<ZVTString> rename(name);
        object->SetProperty(MCCodes::pName, rename, MCPropertyAccessor::accessAdd);
        if (held.Gone())
            return false;
    }
    if (MCStringInfo* info = CreateStringInfo(name)) {
        if (held.Gone()) {
            // A new info that never got its object names nothing.
            if (!info->GetObjectA())
                info->Expunge(true);
            return false;
        }
        info->SetObject(object);
        info->SetCount(1);
        info->SetDiffCount(count);
    }
    return result;
}

ZVTBoolean MCNameSpace::Delete(MCObject* object) {
    ZVTString name;
    if (!ReadName(object, name) || name.IsNull())
        return false;
    MCStringInfo* info = nullptr;
    if (m_xDictionary.Find(name, info) && info && info->GetObjectA() == object) {
        info->Expunge(true);
        return true;
    }
    return false;
}

template <class Visit>
ZVTBoolean MCNameSpace::WalkDown(Visit visit) {
    Visited visited;
    std::vector<std::pair<MCNameSpace*, std::size_t>> pending{{this, 0}};
    while (!pending.empty()) {
        const auto [space, depth] = pending.back();
        pending.pop_back();
        if (!visited.Enter(space))
            continue;
        if (visit(*space, depth))
            return true;
        const ZVTSList<MCObject*> children = BoundEntries(space->m_xNameSpaces);
        // Pushed last first, so children are visited in list order.
        for (std::size_t i = children.Entries(); i-- > 0;) {
            if (auto* child = dynamic_cast<MCNameSpace*>(children.At(i)))
                pending.emplace_back(child, depth + 1);
        }
    }
    return false;
}

template <class Visit>
ZVTBoolean MCNameSpace::WalkUp(Visit visit) {
    Visited visited;
    std::size_t steps = 0;
    for (MCNameSpace* space = this; space && visited.Enter(space); space = space->Ancestor(), ++steps) {
        if (visit(*space, steps))
            return true;
    }
    return false;
}

ZVTBoolean MCNameSpace::Contains(ZVTString& name) {
    auto holds = [&name](MCNameSpace& space, std::size_t) { return space.m_xDictionary.Contains(name); };
    return WalkDown(holds) || WalkUp(holds);
}

MCObject* MCNameSpace::FindObject(ZVTString& name) {
    MCStringInfo* info = nullptr;
    return m_xDictionary.Find(name, info) && info ? info->GetObjectA() : nullptr;
}

MCStringInfo* MCNameSpace::CreateStringInfo(ZVTString& name) {
    MCStringInfo* info = nullptr;
    if (m_xDictionary.Find(name, info))
        return info;
    return dynamic_cast<MCStringInfo*>(
        MCFactoryRegistry::CreateItem(MCStringInfo::c_sType, this, nullptr, nullptr));
}

void MCNameSpace::InsertIntoDictionary(ZVTString& name, MCStringInfo* info) {
    if (info)
        info->m_xEnteredName = name;
    WalkDown([&](MCNameSpace& space, std::size_t) {
        space.m_xDictionary.Insert(name, info);
        return false;
    });
}

ZVTBoolean MCNameSpace::DeleteFromDictionary(ZVTString& name) {
    ZVTBoolean result = true;
    WalkDown([&](MCNameSpace& space, std::size_t) {
        MCStringInfo* info = nullptr;
        if (space.m_xDictionary.Find(name, info) && info)
            info->m_xEnteredName = ZVTString();
        if (!space.m_xDictionary.Remove(name))
            result = false;
        return false;
    });
    return result;
}

void MCNameSpace::DropInheritedNames() {
    // The path from here down to the name space visited: a name stays where its info's name space is on it.
    std::vector<const MCObject*> path;
    WalkDown([&path](MCNameSpace& space, std::size_t depth) {
        path.resize(depth);
        path.push_back(&space);
        std::vector<ZVTString> stale;
        for (ZVTHDictIter<ZVTString, MCStringInfo*> it(space.m_xDictionary); ++it;) {
            MCStringInfo* info = it.Value();
            const MCObject* owner = info ? info->GetOwner(0, MCItem::rttiExact) : nullptr;
            if (std::find(path.begin(), path.end(), owner) == path.end())
                stale.push_back(it.Key());
        }
        for (const ZVTString& name : stale)
            space.m_xDictionary.Remove(name);
        return false;
    });
}

void MCNameSpace::AddValidType(short type) {
    MCVPropertyRawAccessorT<long> accessor(static_cast<long>(type));
    SetProperty(MCCodes::pValidTypeList, accessor, MCPropertyAccessor::accessAdd);
}

void MCNameSpace::RemoveValidType(short type) {
    MCVPropertyRawAccessorT<long> accessor(static_cast<long>(type));
    SetProperty(MCCodes::pValidTypeList, accessor, MCPropertyAccessor::accessRemove);
}

ZVTBoolean MCNameSpace::IsValidFor(short type) const {
    return m_xValidTypeList.GetValue().Contains(static_cast<long>(type));
}

void MCNameSpace::AddChild(MCNameSpace* child) {
    if (!child)
        return;
    MCSRefAccessor accessor(this);
    child->SetProperty(MCCodes::pAncestorNameSpace, accessor, MCPropertyAccessor::accessAdd);
}

void MCNameSpace::RemoveChild(MCNameSpace* child) {
    if (!child)
        return;
    MCSRefAccessor accessor(nullptr);
    child->SetProperty(MCCodes::pAncestorNameSpace, accessor, MCPropertyAccessor::accessAdd);
}

void MCNameSpace::ClearType(short type, ZVTBoolean removeValidType) {
    // Collected first: each expunge takes its entry out of the dictionary and the info list.
    std::vector<std::pair<MCStringInfo*, long>> doomed;
    const ZVTSList<MCObject*> infos = BoundEntries(m_xStringInfoList);
    for (size_t i = 0; i < infos.Entries(); ++i) {
        auto* info = dynamic_cast<MCStringInfo*>(infos.At(i));
        MCObject* named = info ? info->GetObjectA() : nullptr;
        if (named && named->GetType() == type)
            doomed.emplace_back(info, info->GetId());
    }
    for (auto& entry : doomed) {
        if (MCObject::ResolveId(entry.second) == entry.first)
            entry.first->Expunge(true);
    }
    if (removeValidType)
        RemoveValidType(type);
}

ZVTBoolean MCNameSpace::TestAndSetCount_(ZVTString const& name, long& count) {
    ZVTBoolean found = false;
    auto take = [&](MCNameSpace& space, std::size_t) {
        found = space.SetCountFromSelf(name, found, count);
        return false;
    };
    WalkDown(take);
    if (MCNameSpace* ancestor = Ancestor())
        ancestor->WalkUp(take);
    return found;
}

ZVTBoolean MCNameSpace::SetCountFromSelf(ZVTString const& name, ZVTBoolean found, long& count) {
    MCStringInfo* info = nullptr;
    if (m_xDictionary.Find(name, info)) {
        found = true;
        if (info && info->GetCount() > count)
            count = info->GetCount();
    }
    return found;
}

// ---- MCStringInfo

MCStringInfo::MCStringInfo(short type, MCFactorySignature& signature, MCFactoryContext* context)
    : MCObject(type, signature, context),
      m_xObject(MCCodes::pStringInfoObject, this),
      m_xCount(MCCodes::pStringInfoCount, this) {
    RegisterRules(context);
}

MCStringInfo::MCStringInfo(MCObject* owner, MCFactoryContext* context)
    : MCObject(c_sType, owner, context),
      m_xObject(MCCodes::pStringInfoObject, this),
      m_xCount(MCCodes::pStringInfoCount, this) {
    RegisterRules(context);
}

MCStringInfo::~MCStringInfo() = default;

void MCStringInfo::RegisterRules(MCFactoryContext* context) {
    if (!context)
        return;
    MCObjectSemReg::Register(c_sType, context, &c_xStringInfoOS, false);
    MCPropertySemanticRegistry::Register(c_sType, context, MCCodes::pStringInfoObject, &c_xStringInfoObjectPS,
                                         false, false);
    MCNotificationDirectory::Register(c_sType, context, MCEvent::SubjectDestroyed, &c_xSubjectDestroyedN,
                                      false);
    RegisterLevel(c_sType, context);
}

ZVTBoolean MCStringInfo::IsType_(short type) const {
    return MCObject::IsType_(type);
}

MCObject* MCStringInfo::GetObjectA() {
    return m_xObject.IsBound() ? m_xObject.GetValue() : nullptr;
}

void MCStringInfo::SetObject(MCObject* object) {
    MCSRefAccessor accessor(object);
    SetProperty(MCCodes::pStringInfoObject, accessor, MCPropertyAccessor::accessAdd);
}

long MCStringInfo::GetCount() {
    return static_cast<long>(static_cast<unsigned long>(m_xCount.GetValue()) & 0xFFFFUL);
}

namespace {

// Each counter has 16 bits of the stored long.
bool FitsCounter(long number) {
    return number >= 0 && number <= 0xFFFFL;
}

}  // namespace

void MCStringInfo::SetCount(long count) {
    if (!FitsCounter(count))
        return;
    const unsigned long value = static_cast<unsigned long>(m_xCount.GetValue());
    SetCounters((value & ~0xFFFFUL) | (static_cast<unsigned long>(count) & 0xFFFFUL));
}

long MCStringInfo::GetDiffCount() {
    return static_cast<long>((static_cast<unsigned long>(m_xCount.GetValue()) >> 16) & 0xFFFFUL);
}

void MCStringInfo::SetDiffCount(long diffCount) {
    if (!FitsCounter(diffCount))
        return;
    const unsigned long value = static_cast<unsigned long>(m_xCount.GetValue());
    SetCounters((value & 0xFFFFUL) | ((static_cast<unsigned long>(diffCount) & 0xFFFFUL) << 16));
}

void MCStringInfo::SetCounters(unsigned long value) {
    // The stored long is 32 bits wide: a difference count from 0x8000 up sets its sign bit, which must
    // read back as the negative long it is, not as a wider positive one that no stream would write.
    const auto bits = static_cast<std::uint32_t>(value & 0xFFFFFFFFUL);
    MCSPropertyRawAccessorT<long> accessor(static_cast<long>(static_cast<std::int32_t>(bits)));
    SetProperty(MCCodes::pStringInfoCount, accessor, MCPropertyAccessor::accessAdd);
}

// ---- MCStringInfoSortOnDiffCount

void MCStringInfoSortOnDiffCount::Sort(MCObject** items, long count) {
    if (!items || count < 2)
        return;
    std::stable_sort(items, items + count, [](MCObject* a, MCObject* b) { return Compare(&a, &b) < 0; });
}

int MCStringInfoSortOnDiffCount::Compare(MCObject** a, MCObject** b) {
    auto* left = dynamic_cast<MCStringInfo*>(*a);
    auto* right = dynamic_cast<MCStringInfo*>(*b);
    const long l = left ? left->GetDiffCount() : 0;
    const long r = right ? right->GetDiffCount() : 0;
    return l < r ? -1 : (l > r ? 1 : 0);
}
