// Its own process: the registry ends while objects of a host type live, and the type comes back in the
// next one.

#include <gtest/gtest.h>

#include "ModelCore/ModelCore.h"
#include "ModelCore/ModelCoreModern.h"

namespace {

class Listed : public mc::HostClass<7001> {
public:
    static bool Register() { return mc::RegisterClass<Listed>("Listed"); }

private:
    friend mc::FactoryOf<Listed>;
    using HostClass::HostClass;
};

MCObject* Make() {
    return static_cast<MCObject*>(MCFactoryRegistry::CreateItem(Listed::c_sType, nullptr, nullptr, nullptr));
}

}  // namespace

// Objects that outlive their registry leave their type's list with it: their ends later take nothing out
// of the list the next registry keeps for the same type.
TEST(MCFactoryRegistryEndTest, ObjectsThatOutliveTheRegistryLeaveTheNextOnesListAlone) {
    MdlCore::Initialize();
    ASSERT_TRUE(Listed::Register());
    MCObject* const old[] = {Make(), Make(), Make()};
    MCFactoryRegistry::DeleteInstance();
    ASSERT_TRUE(Listed::Register());
    MCObject* fresh = Make();
    for (MCObject* object : old)
        object->Expunge(true);
    ZVTHTableT<MCObject*>* live = nullptr;
    ASSERT_TRUE(MCFactoryRegistry::GetInstances(Listed::c_sType, live, nullptr));
    EXPECT_EQ(live->Entries(), 1u);
    EXPECT_TRUE(live->Contains(fresh));
    fresh->Expunge(true);
}
