#include "platform/TGT.h"

#include "foundation/ZVTHDict.h"

namespace {

using TargetTable = ZVTHDict<ZVTString, tgt_target*>;

// Never destroyed: a target with static storage may unregister itself after every local static is gone.
TargetTable& Targets() {
    static TargetTable* const s_pxTargets = new TargetTable(&ZVTString::Hash);
    return *s_pxTargets;
}

}  // namespace

// --- tgt_target

tgt_target::tgt_target(const ZVTString& name) : m_xName(name) {}

tgt_target::~tgt_target() {
    // A registered target that dies must not be found afterwards.
    HUBTargetRegistry::UnregisterTarget(this);
}

ZVTString tgt_target::GetTargetName() const {
    return m_xName;
}

// --- HUBTargetRegistry

ZVTBoolean HUBTargetRegistry::RegisterTarget(tgt_target* pTarget) {
    if (pTarget == nullptr)
        return false;
    const ZVTString name = pTarget->GetTargetName();
    if (name.IsNull() || Targets().Contains(name))
        return false;
    Targets().Insert(name, pTarget);
    return true;
}

ZVTBoolean HUBTargetRegistry::UnregisterTarget(tgt_target* pTarget) {
    if (pTarget == nullptr)
        return false;
    const ZVTString name = pTarget->GetTargetName();
    tgt_target* pRegistered = nullptr;
    // Another target under the same name stays registered.
    if (!Targets().Find(name, pRegistered) || pRegistered != pTarget)
        return false;
    return Targets().Remove(name);
}

tgt_target* HUBTargetRegistry::GetTargetFromId(const ZVTString& name) {
    tgt_target* pTarget = nullptr;
    if (!name.IsNull())
        Targets().Find(name, pTarget);
    return pTarget;
}

void HUBTargetRegistry::Clear() {
    Targets().Clear();
}
