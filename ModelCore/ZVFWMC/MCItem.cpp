#include "ModelCore/ZVFWMC/MCItem.h"

#include "ModelCore/ZVFWMC/MCEventPrivate.h"

MCItem::~MCItem() = default;

void MCItem::SetType(short type) {
    SetType_(type);
    m_sType = type;
    // An object's type decides what its owners' reactions do with an event.
    mc_detail::ForgetHeard();
}

ZVTBoolean MCItem::SetFlag(unsigned short flag, ZVTBoolean on) {
    unsigned short filtered = flag;
    if (!SetFlag_(filtered, on))
        return false;
    SetFlagRaw(filtered, on);
    return true;
}

void MCItem::SetFlags(unsigned short flags) {
    unsigned short filtered = flags;
    if (SetFlags_(filtered))
        SetFlagsRaw(filtered);
}

ZVTBoolean MCItem::InvokeCreationSemantics(MCFactoryContext* /*context*/) {
    return true;
}

long MCItem::GetParallelism(MCItem* /*first*/, MCItem* /*second*/, ZVTBoolean /*flag*/) const {
    return 0;
}

ZVTBoolean MCItem::IsEqualTo(MCItem* /*other*/) const {
    return true;
}

ZVTBoolean MCItem::SetFlag_(unsigned short& /*flag*/, ZVTBoolean /*on*/) {
    return true;
}

ZVTBoolean MCItem::SetFlags_(unsigned short& /*flags*/) {
    return true;
}

void MCItem::SetType_(short /*type*/) {}

ZVTBoolean MCItem::IsType_(short /*type*/) const {
    return false;
}
