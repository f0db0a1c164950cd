// Accessors: the steps of a change and what each flag does to value, flags and events, for active and raw
// accessors alike; list changes and their hint codes; nulling; reading; the flag rules of SetPropertyFlag
// and of the property's own flag hooks.

#include "ModelCore/ZVFWMC/MCCodes.h"
#include "support/ModelTestSupport.h"

namespace {

constexpr long c_lAdd = MCPropertyAccessor::accessAdd;
constexpr long c_lReplace = MCPropertyAccessor::accessReplace;
constexpr long c_lRemove = MCPropertyAccessor::accessRemove;
constexpr long c_lFlags = MCPropertyAccessor::accessFlags;
constexpr long c_lForce = MCPropertyAccessor::accessForce;
constexpr long c_lInherited = MCPropertyAccessor::accessInherited;

// The list as "1 2 3", or "-" when it cannot be read.
std::string GetList(const MCObject* object, short type) {
    MCVPropertyRawAccessorT<long> accessor;
    if (!object->GetProperty(type, accessor))
        return "-";
    std::string text;
    for (size_t i = 0; i < accessor.GetList()->Entries(); ++i)
        text += (i ? " " : "") + std::to_string(accessor.GetList()->At(i));
    return text;
}

}  // namespace

// Each case starts from an Integer holding 5 with itemSA set, then sets it once.
class SingleValueFlagsTest : public ModelTest, public ::testing::WithParamInterface<bool> {};

TEST_P(SingleValueFlagsTest, FlagsDecideWhatMovesAndWhatFires) {
    const bool active = GetParam();
    const struct {
        const char* pcName;
        long lValue;
        long lFlags;
        unsigned short uAccessorFlags;
        bool bResult;
        const char* pcValue;
        unsigned short uPropertyFlags;
        bool bEvent;
    } cases[] = {
        {"a new value", 6, c_lAdd, 0, true, "6", 0, true},
        {"replace and remove also set a single value", 6, c_lRemove, 0, true, "6", 0, true},
        {"an equal value changes and fires nothing", 5, c_lAdd, 0, true, "5", MCItem::itemSA, false},
        {"force fires for an equal value", 5, c_lAdd | c_lForce, 0, true, "5", 0, true},
        {"no change bit: nothing moves", 6, 0, 0, true, "5", MCItem::itemSA, false},
        {"flags alone write the accessor's flags only", 6, c_lFlags, 0x0200, true, "5", 0x0200, false},
        {"flags with a value keep the accessor's itemSA", 6, c_lAdd | c_lFlags, MCItem::itemSA, true, "6",
         MCItem::itemSA, true},
        {"inherited touches neither value nor flags", 6, c_lAdd | c_lInherited, 0, true, "5", MCItem::itemSA,
         false},
    };
    for (const auto& rCase : cases) {
        SCOPED_TRACE(rCase.pcName);
        MCObject* object = Make();
        ASSERT_TRUE(SetLong(object, MCCodes::pInteger, 5));
        auto* property = const_cast<MCProperty*>(object->FindProperty(MCCodes::pInteger, false));
        ASSERT_TRUE(object->SetPropertyFlag(property, MCItem::itemSA, true));
        EventLog log;
        object->AddSubscriber(&log, MCEvent::subscriberObserver);

        MCSPropertyRawAccessorT<long> raw(rCase.lValue);
        MCSPropertyAccessorT<long> live(rCase.lValue);
        MCPropertyAccessor& accessor = active ? static_cast<MCPropertyAccessor&>(live) : raw;
        accessor.SetFlags(rCase.uAccessorFlags);
        EXPECT_EQ(object->SetProperty(MCCodes::pInteger, accessor, rCase.lFlags), rCase.bResult);
        EXPECT_EQ(GetLong(object, MCCodes::pInteger), rCase.pcValue);
        EXPECT_EQ(property->GetFlags(), rCase.uPropertyFlags);
        const std::string expected = "PropertySet(" + std::to_string(object->GetId()) + "," +
                                     std::to_string(MCCodes::pInteger) + ",0)";
        EXPECT_EQ(log.Take(), active && rCase.bEvent ? expected : "");
        object->RemoveSubscriber(&log, MCEvent::subscriberObserver);
    }
}

INSTANTIATE_TEST_SUITE_P(ActiveAndRaw, SingleValueFlagsTest, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& param) {
                             return param.param ? "Active" : "Raw";
                         });

using AccessorTest = ModelTest;

TEST_F(AccessorTest, FirstSetMakesTheProperty_NulledOnesAlwaysFire) {
    MCObject* object = Make();
    EventLog& log = m_xLog;
    object->AddSubscriber(&log, MCEvent::subscriberObserver);
    const std::string id = std::to_string(object->GetId());

    EXPECT_EQ(object->FindProperty(MCCodes::pInteger, true), nullptr);
    EXPECT_TRUE(SetLong(object, MCCodes::pInteger, 0));  // 0 is the nulled property's value too
    EXPECT_EQ(log.Take(), "PropertySet(" + id + ",87,0)");

    // Setting a nulled embedded property to the value it held still fires.
    auto* node = MakeNode();
    node->AddSubscriber(&log, MCEvent::subscriberObserver);
    ASSERT_TRUE(SetLong(node, TestNode::c_sEmbedded, 7));
    MCSPropertyAccessorT<long> accessor;
    ASSERT_TRUE(node->NullProperty(TestNode::c_sEmbedded, accessor));
    EXPECT_EQ(node->FindProperty(TestNode::c_sEmbedded, true), &node->Embedded());
    EXPECT_EQ(node->Embedded().GetValue(), 7);
    log.Take();
    EXPECT_TRUE(SetLong(node, TestNode::c_sEmbedded, 7));
    EXPECT_EQ(log.Take(), "PropertySet(" + std::to_string(node->GetId()) + "," +
                              std::to_string(TestNode::c_sEmbedded) + ",0)");
    node->RemoveSubscriber(&log, MCEvent::subscriberObserver);
    node->Expunge(true);
}

TEST_F(AccessorTest, ListChangesCarryTheirHintCodes) {
    MCObject* object = Make();
    EventLog& log = m_xLog;
    object->AddSubscriber(&log, MCEvent::subscriberObserver);
    const std::string head = "PropertySet(" + std::to_string(object->GetId()) + ",88,";

    ZVTSList<long> values;
    values.Append(1);
    values.Append(2);
    MCVPropertyAccessorT<long> accessor(values);
    EXPECT_TRUE(object->SetProperty(MCCodes::pIntegerList, accessor, c_lAdd));
    EXPECT_TRUE(object->SetProperty(MCCodes::pIntegerList, accessor, c_lAdd));
    EXPECT_EQ(GetList(object, MCCodes::pIntegerList), "1 2 1 2");
    // A list is always set: adding what is there fires again, as does removing what is not.
    MCVPropertyAccessorT<long> absent(9L);
    EXPECT_TRUE(object->SetProperty(MCCodes::pIntegerList, absent, c_lRemove));
    MCVPropertyAccessorT<long> one(1L);
    EXPECT_TRUE(object->SetProperty(MCCodes::pIntegerList, one, 0x40));  // neither add nor replace: removes
    EXPECT_EQ(GetList(object, MCCodes::pIntegerList), "2 1 2");
    MCVPropertyAccessorT<long> three(3L);
    EXPECT_TRUE(object->SetProperty(MCCodes::pIntegerList, three, c_lReplace | c_lAdd));
    EXPECT_EQ(GetList(object, MCCodes::pIntegerList), "3");
    EXPECT_EQ(log.Take(), head + "1) " + head + "1) " + head + "2) " + head + "2) " + head + "3)");

    // Emptied by removals the list stays set.
    EXPECT_TRUE(object->SetProperty(MCCodes::pIntegerList, three, c_lRemove));
    EXPECT_EQ(GetList(object, MCCodes::pIntegerList), "");
    object->RemoveSubscriber(&log, MCEvent::subscriberObserver);
}

TEST_F(AccessorTest, ListAccessorSetValueFlags) {
    MCVPropertyRawAccessorT<long> accessor;
    accessor.SetValue(1, c_lAdd);
    accessor.SetValue(2, c_lAdd);
    accessor.SetValue(1, c_lAdd);
    accessor.SetValue(1, c_lRemove);
    long first = 0;
    ASSERT_TRUE(accessor.GetFirst(first));
    EXPECT_EQ(first, 2);
    EXPECT_FALSE(accessor.IsSingle());
    accessor.SetValue(8, c_lReplace);
    EXPECT_TRUE(accessor.IsSingle());
    accessor.SetValue(8, c_lRemove);
    EXPECT_FALSE(accessor.GetFirst(first));
}

TEST_F(AccessorTest, NullingTellsSubscribersWhileTheValueIsThere) {
    MCObject* object = Make();
    ASSERT_TRUE(SetLong(object, MCCodes::pInteger, 42));
    EventLog& log = m_xLog;
    std::string seen;
    static std::string* s_psSeen;
    s_psSeen = &seen;
    log.m_pxOnNotify = [](MCEvent& event) {
        auto* property = static_cast<const MCSPropertyT<long>*>(event.GetProperty());
        *s_psSeen = std::to_string(property->GetValue());
    };
    object->AddSubscriber(&log, MCEvent::subscriberObserver);
    MCSPropertyAccessorT<long> accessor;
    EXPECT_TRUE(object->NullProperty(MCCodes::pInteger, accessor));
    EXPECT_EQ(log.Take(), "PropertyNulled(" + std::to_string(object->GetId()) + ",87)");
    EXPECT_EQ(seen, "42");
    EXPECT_EQ(object->FindProperty(MCCodes::pInteger, true), nullptr);  // a free property is deleted
    EXPECT_FALSE(object->NullProperty(MCCodes::pInteger, accessor));

    // A raw accessor nulls silently; without an accessor the property's own active one is used.
    ASSERT_TRUE(SetLong(object, MCCodes::pInteger, 1));
    MCSPropertyRawAccessorT<long> raw;
    EXPECT_TRUE(object->NullProperty(MCCodes::pInteger, raw));
    ASSERT_TRUE(SetLong(object, MCCodes::pInteger, 1));
    log.Take();
    EXPECT_TRUE(object->NullProperty(const_cast<MCProperty*>(object->FindProperty(MCCodes::pInteger, false)),
                                     nullptr));
    EXPECT_EQ(log.Take(), "PropertyNulled(" + std::to_string(object->GetId()) + ",87)");

    // Another object's property is refused without a word.
    MCObject* other = Make();
    ASSERT_TRUE(SetLong(other, MCCodes::pInteger, 8));
    ASSERT_TRUE(SetLong(object, MCCodes::pInteger, 9));
    log.Take();
    EXPECT_FALSE(object->NullProperty(const_cast<MCProperty*>(other->FindProperty(MCCodes::pInteger, false)),
                                      nullptr));
    EXPECT_EQ(log.Take(), "");
    EXPECT_EQ(GetLong(other, MCCodes::pInteger), "8");
    EXPECT_EQ(GetLong(object, MCCodes::pInteger), "9");
    object->RemoveSubscriber(&log, MCEvent::subscriberObserver);
}

TEST_F(AccessorTest, TheIdPropertyIsNulledInPlace) {
    MCObject* object = Make();
    const long id = object->GetId();
    MCSPropertyRawAccessorT<long> accessor;
    EXPECT_TRUE(object->NullProperty(MCCodes::pId, accessor));
    EXPECT_EQ(object->GetId(), id);
    const MCProperty* property = object->FindProperty(MCCodes::pId, false);
    ASSERT_NE(property, nullptr);
    EXPECT_TRUE(property->GetFlag(MCItem::itemNulled));
    EXPECT_EQ(GetLong(object, 132), "-");
}

TEST_F(AccessorTest, ReadingRefusesNulledAbsentAndForeignProperties) {
    MCObject* object = Make();
    MCSPropertyRawAccessorT<long> accessor(99);
    accessor.SetFlags(0x0400);
    EXPECT_FALSE(object->GetProperty(MCCodes::pInteger, accessor));
    EXPECT_EQ(object->FindProperty(MCCodes::pInteger, true), nullptr);  // reading makes no stored property
    EXPECT_EQ(accessor.GetValue(), 99);
    EXPECT_EQ(accessor.GetFlags(), 0x0400);

    // A property of another value class is left alone.
    MCSPropertyAccessorT<ZVTString> text(ZVTString("x"));
    ASSERT_TRUE(object->SetProperty(MCCodes::pString, text, c_lAdd));
    EXPECT_FALSE(object->GetProperty(MCCodes::pString, accessor));
    EXPECT_FALSE(object->SetProperty(MCCodes::pString, accessor, c_lAdd));

    ZVTString value;
    EXPECT_TRUE(object->GetPropertyString(MCCodes::pString, value));
    EXPECT_EQ(value, "x");
    MCSPropertyAccessorT<ZVTString> name(ZVTString("alias"));
    ASSERT_TRUE(object->SetProperty(MCCodes::pName, name, c_lAdd));
    EXPECT_TRUE(object->GetPropertyString(MCCodes::pName, value));
    EXPECT_EQ(value, "alias");
    EXPECT_EQ(object->FindProperty(MCCodes::pName, false)->GetType(),
              MCCodes::pName);  // the alias keeps its code
    EXPECT_FALSE(object->GetPropertyString(MCCodes::pInteger, value));
}

TEST_F(AccessorTest, SetPropertyFlagGuardsTheValueFlags) {
    MCObject* object = Make();
    ASSERT_TRUE(SetLong(object, MCCodes::pInteger, 3));
    auto* property = const_cast<MCProperty*>(object->FindProperty(MCCodes::pInteger, false));
    EXPECT_FALSE(object->SetPropertyFlag(property, MCItem::itemNulled, true));
    EXPECT_FALSE(object->SetPropertyFlag(property, MCItem::itemNL, false));
    EXPECT_FALSE(object->SetPropertyFlag(nullptr, MCItem::itemSA, true));
    EXPECT_TRUE(object->SetPropertyFlag(property, MCItem::itemTemp | MCItem::itemSA, true));
    EXPECT_TRUE(object->SetPropertyFlag(property, MCItem::itemSA, false));
    EXPECT_EQ(property->GetFlags(), MCItem::itemTemp);
    // The property's own hooks: SetFlag never nulls, SetFlags un-nulls but cannot clear the calculated state.
    EXPECT_TRUE(property->SetFlag(MCItem::itemNulled, true));
    EXPECT_EQ(property->GetFlags(), MCItem::itemTemp);
    property->SetFlags(MCItem::itemPreFetch | MCItem::itemNulled);
    EXPECT_EQ(property->GetFlags(), MCItem::itemPreFetch);
    property->SetFlags(0);
    EXPECT_EQ(property->GetFlags(), MCItem::itemPreFetch);

    // Marking a nulled property as calculated takes it out of the nulled state.
    auto* node = MakeNode();
    MCSPropertyRawAccessorT<long> raw;
    ASSERT_TRUE(node->NullProperty(TestNode::c_sEmbedded, raw));
    EXPECT_TRUE(node->SetPropertyFlag(&node->Embedded(), MCItem::itemPreFetch, true));
    EXPECT_EQ(node->Embedded().GetFlags(), MCItem::itemPreFetch);
    node->Expunge(true);
}
