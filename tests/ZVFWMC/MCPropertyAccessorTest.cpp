// Accessors: the steps of a change and what each flag does to value, flags and events, for active and raw
// accessors alike; list changes and their hint codes; nulling; reading; the flag rules of SetPropertyFlag
// and of the property's own flag hooks.

#include "ModelCore/ZVFWMC/MCCodes.h"
#include "support/ModelTestSupport.h"
#include "support/RuleTestSupport.h"

namespace {

constexpr long c_lAdd = MCPropertyAccessor::accessAdd;
constexpr long c_lReplace = MCPropertyAccessor::accessReplace;
constexpr long c_lRemove = MCPropertyAccessor::accessRemove;

// The list as "1 2 3", or "-" when it cannot be read.
std::string GetList(const MCObject* object) {
    MCVPropertyRawAccessorT<long> accessor;
    if (!object->GetProperty(MCCodes::pIntegerList, accessor))
        return "-";
    std::string text;
    for (size_t i = 0; i < accessor.GetList()->Entries(); ++i)
        text += (i ? " " : "") + std::to_string(accessor.GetList()->At(i));
    return text;
}

MCProperty* Property(const MCObject* object, short type) {
    return const_cast<MCProperty*>(object->FindProperty(type, true));
}

std::string Event(const char* kind, const MCObject* object, short type, const char* hint = ",0") {
    return std::string(kind) + "(" + std::to_string(object->GetId()) + "," + std::to_string(type) + hint +
           ")";
}

}  // namespace

using AccessorTest = ModelTest;

TEST_F(AccessorTest, FlagsDecideWhatMovesAndWhatFires) {
    // Each case starts from an Integer holding 5 with itemSA set, then sets it once.
    const struct {
        const char* pcName;
        long lValue, lFlags;
        unsigned short uAccessorFlags;
        const char* pcValue;
        unsigned short uPropertyFlags;
        bool bEvent;
    } cases[] = {
        {"a new value", 6, c_lAdd, 0, "6", 0, true},
        {"replace and remove also set a single value", 6, c_lRemove, 0, "6", 0, true},
        {"an equal value changes and fires nothing", 5, c_lAdd, 0, "5", MCItem::itemSA, false},
        {"force fires for an equal value", 5, c_lAdd | MCPropertyAccessor::accessForce, 0, "5", 0, true},
        {"no change bit: nothing moves", 6, 0, 0, "5", MCItem::itemSA, false},
        {"flags alone write the accessor's flags only", 6, MCPropertyAccessor::accessFlags, 0x0200, "5",
         0x0200, false},
        {"flags with a value keep the accessor's itemSA", 6, c_lAdd | MCPropertyAccessor::accessFlags,
         MCItem::itemSA, "6", MCItem::itemSA, true},
        {"inherited touches neither value nor flags", 6, c_lAdd | MCPropertyAccessor::accessInherited, 0, "5",
         MCItem::itemSA, false},
    };
    for (bool active : {true, false}) {
        for (const auto& rCase : cases) {
            SCOPED_TRACE(std::string(rCase.pcName) + (active ? " (active)" : " (raw)"));
            MCObject* object = Make();
            ASSERT_TRUE(SetLong(object, MCCodes::pInteger, 5));
            MCProperty* property = Property(object, MCCodes::pInteger);
            ASSERT_TRUE(object->SetPropertyFlag(property, MCItem::itemSA, true));
            object->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
            MCSPropertyRawAccessorT<long> raw(rCase.lValue);
            MCSPropertyAccessorT<long> live(rCase.lValue);
            MCPropertyAccessor& accessor = active ? static_cast<MCPropertyAccessor&>(live) : raw;
            accessor.SetFlags(rCase.uAccessorFlags);
            EXPECT_TRUE(object->SetProperty(MCCodes::pInteger, accessor, rCase.lFlags));
            EXPECT_EQ(GetLong(object, MCCodes::pInteger), rCase.pcValue);
            EXPECT_EQ(property->GetFlags(), rCase.uPropertyFlags);
            EXPECT_EQ(m_xLog.Take(),
                      active && rCase.bEvent ? Event("PropertySet", object, MCCodes::pInteger) : "");
        }
    }
}

TEST_F(AccessorTest, ListChangesCarryTheirHintCodes) {
    MCObject* object = Make();
    object->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
    MCVPropertyAccessorT<long> accessor(ListOf({1L, 2L})), absent(9L), one(1L), three(3L);
    EXPECT_TRUE(object->SetProperty(MCCodes::pIntegerList, accessor, c_lAdd));
    EXPECT_TRUE(object->SetProperty(MCCodes::pIntegerList, accessor, c_lAdd));
    EXPECT_EQ(GetList(object), "1 2 1 2");
    // A list is always set: adding what is there fires again, as does removing what is not.
    EXPECT_TRUE(object->SetProperty(MCCodes::pIntegerList, absent, c_lRemove));
    EXPECT_TRUE(object->SetProperty(MCCodes::pIntegerList, one, 0x40));  // neither add nor replace: removes
    EXPECT_EQ(GetList(object), "2 1 2");
    EXPECT_TRUE(object->SetProperty(MCCodes::pIntegerList, three, c_lReplace | c_lAdd));
    EXPECT_EQ(GetList(object), "3");
    EXPECT_TRUE(object->SetProperty(MCCodes::pIntegerList, three, c_lRemove));
    EXPECT_EQ(GetList(object), "");  // emptied by removals the list stays set
    std::string events;
    for (const char* hint : {",1", ",1", ",2", ",2", ",3", ",2"})
        events += (events.empty() ? "" : " ") + Event("PropertySet", object, MCCodes::pIntegerList, hint);
    EXPECT_EQ(m_xLog.Take(), events);

    // The accessor's own list follows the same flags.
    MCVPropertyRawAccessorT<long> list;
    for (long value : {1, 2, 1})
        list.SetValue(value, c_lAdd);
    list.SetValue(1, c_lRemove);
    long first = 0;
    EXPECT_TRUE(list.GetFirst(first) && first == 2 && !list.IsSingle());
    list.SetValue(8, c_lReplace);
    EXPECT_TRUE(list.IsSingle());
    list.SetValue(8, c_lRemove);
    EXPECT_FALSE(list.GetFirst(first));
}

// Nulling tells the subscribers while the value is still there, deletes a free property and keeps an
// embedded or id property in place; setting a nulled or absent property always fires, even to the value it
// holds. A raw accessor nulls silently, no accessor means the property's own active one, and another
// object's property is refused without a word.
TEST_F(AccessorTest, NullingAndSettingAgain) {
    MCObject* object = Make();
    TestNode* node = MakeNode();
    MCObject* other = Make();
    static std::string s_sSeen;
    m_xLog.m_pxOnNotify = [](MCEvent& event) {
        if (event.GetEventType() == MCEvent::PropertyNulled)
            s_sSeen +=
                std::to_string(static_cast<const MCSPropertyT<long>*>(event.GetProperty())->GetValue());
    };
    for (MCObject* heard : {object, static_cast<MCObject*>(node)})
        heard->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
    EXPECT_TRUE(SetLong(object, MCCodes::pInteger, 0));  // 0 is the nulled property's value too
    EXPECT_EQ(m_xLog.Take(), Event("PropertySet", object, MCCodes::pInteger));
    ASSERT_TRUE(SetLong(object, MCCodes::pInteger, 42));
    MCSPropertyAccessorT<long> accessor;
    MCSPropertyRawAccessorT<long> raw;
    s_sSeen.clear();
    m_xLog.Take();
    EXPECT_TRUE(object->NullProperty(MCCodes::pInteger, accessor));
    EXPECT_EQ(m_xLog.Take(), Event("PropertyNulled", object, MCCodes::pInteger, ""));
    EXPECT_EQ(s_sSeen, "42");
    EXPECT_EQ(Property(object, MCCodes::pInteger), nullptr);
    EXPECT_FALSE(object->NullProperty(MCCodes::pInteger, accessor));
    ASSERT_TRUE(SetLong(object, MCCodes::pInteger, 1));
    EXPECT_TRUE(object->NullProperty(MCCodes::pInteger, raw));
    ASSERT_TRUE(SetLong(object, MCCodes::pInteger, 1));
    ASSERT_TRUE(SetLong(other, MCCodes::pInteger, 8));
    m_xLog.Take();
    EXPECT_TRUE(object->NullProperty(Property(object, MCCodes::pInteger), nullptr));
    EXPECT_FALSE(object->NullProperty(Property(other, MCCodes::pInteger), nullptr));
    EXPECT_EQ(m_xLog.Take(), Event("PropertyNulled", object, MCCodes::pInteger, ""));
    EXPECT_EQ(GetLong(other, MCCodes::pInteger), "8");

    ASSERT_TRUE(SetLong(node, TestNode::c_sEmbedded, 7));
    ASSERT_TRUE(node->NullProperty(TestNode::c_sEmbedded, accessor));
    EXPECT_EQ(Property(node, TestNode::c_sEmbedded), &node->Embedded());
    EXPECT_EQ(node->Embedded().GetValue(), 7);
    m_xLog.Take();
    EXPECT_TRUE(SetLong(node, TestNode::c_sEmbedded, 7));
    EXPECT_EQ(m_xLog.Take(), Event("PropertySet", node, TestNode::c_sEmbedded));

    const long id = object->GetId();
    EXPECT_TRUE(object->NullProperty(MCCodes::pId, raw));
    EXPECT_EQ(object->GetId(), id);
    EXPECT_TRUE(Property(object, MCCodes::pId)->GetFlag(MCItem::itemNulled));
    EXPECT_EQ(GetLong(object, MCCodes::pId), "-");
    node->Expunge(true);
}

TEST_F(AccessorTest, ReadingRefusesNulledAbsentAndForeignProperties) {
    MCObject* object = Make();
    MCSPropertyRawAccessorT<long> accessor(99);
    accessor.SetFlags(0x0400);
    EXPECT_FALSE(object->GetProperty(MCCodes::pInteger, accessor));
    EXPECT_EQ(Property(object, MCCodes::pInteger), nullptr);  // reading makes no stored property
    EXPECT_EQ(accessor.GetValue() * 10000 + accessor.GetFlags(), 99 * 10000 + 0x0400);
    // A property of another value class is left alone.
    MCSPropertyAccessorT<ZVTString> text(ZVTString("x")), name(ZVTString("alias"));
    ASSERT_TRUE(object->SetProperty(MCCodes::pString, text, c_lAdd));
    EXPECT_FALSE(object->GetProperty(MCCodes::pString, accessor));
    EXPECT_FALSE(object->SetProperty(MCCodes::pString, accessor, c_lAdd));
    ASSERT_TRUE(object->SetProperty(MCCodes::pName, name, c_lAdd));
    EXPECT_EQ(Property(object, MCCodes::pName)->GetType(), MCCodes::pName);  // the alias keeps its code
    std::string values;
    for (short type : {short{MCCodes::pString}, short{MCCodes::pName}, short{MCCodes::pInteger}}) {
        ZVTString value("-");
        values += (object->GetPropertyString(type, value) ? "" : "!") + value.str() + " ";
    }
    EXPECT_EQ(values, "x alias !- ");
}

TEST_F(AccessorTest, SetPropertyFlagGuardsTheValueFlags) {
    MCObject* object = Make();
    ASSERT_TRUE(SetLong(object, MCCodes::pInteger, 3));
    MCProperty* property = Property(object, MCCodes::pInteger);
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

// A host's accessor class that changes nothing: a first set through it takes the long way.
template <class T>
struct HostAccessor : MCSPropertyAccessorT<T> {
    using MCSPropertyAccessorT<T>::MCSPropertyAccessorT;
};

// A first set of a core value where nothing could tell takes a short way, which must end as the long way
// does (a host's accessor class forces that one): every flag, a string, registered flags, a rule on one
// type of the code but not another, a rule registered late, heirs, flags registered after a first set.
TEST_F(RuleTest, AFirstSetEndsAlikeOnTheShortWayAndTheLongOne) {
    // Integers of the test's own, which no other test's rule reaches; the short way runs first, since a
    // rule's interest outlives it; each run has a code of its own whose registered flags change.
    auto own = [](short code) {
        return MCFactoryRegistry::RegisterAliasProperty(code, "Own", MCCodes::pInteger, true, false, false,
                                                        false);
    };
    static const bool registered = own(7716) && own(7718) && own(7719);
    ASSERT_TRUE(registered);
    auto run = [this](bool core) {
        const short width = 7716, fetch = core ? 7718 : 7719;
        auto set = [core](MCObject* object, short type, long flags) {
            HostAccessor<long> host(7L);
            MCSPropertyAccessorT<long> plain(7L);
            HostAccessor<ZVTString> hostText(ZVTString("t"));
            MCSPropertyAccessorT<ZVTString> plainText(ZVTString("t"));
            MCPropertyAccessor& accessor = type == Shape::c_sLabel
                                               ? (core ? plainText : hostText)
                                               : (core ? static_cast<MCPropertyAccessor&>(plain) : host);
            std::string trace = object->SetProperty(type, accessor, flags) ? " set" : " refused";
            ZVTString text;
            const MCProperty* property = object->MCObject::FindProperty(type, true);
            trace += property ? ":" + std::to_string(property->GetFlags()) : ":none";
            return trace + (object->GetPropertyString(type, text) ? "=" + std::string(text.str()) : "");
        };
        // An observer reads the flags of the change behind each PropertySet.
        m_xLog.m_pxOnNotify = [](MCEvent& event) {
            if (auto* context = static_cast<MCPropertySemanticContext*>(event.GetHintPointer()))
                RuleLog() += " " + std::to_string(context->GetActiveAccessor()->m_lFlags);
        };
        MCObject* root = Make(nullptr, Shape::c_sType);
        root->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
        std::string trace;
        for (long flags : {c_lAdd, c_lRemove, c_lAdd | MCPropertyAccessor::accessForce, 0L,
                           long{MCPropertyAccessor::accessFlags}, c_lAdd | MCPropertyAccessor::accessFlags,
                           c_lAdd | MCPropertyAccessor::accessInherited})
            trace += set(Make(root, Shape::c_sType), width, flags);
        trace += set(Make(root, Shape::c_sType), Shape::c_sLabel, c_lAdd);
        trace += set(Make(root, Shape::c_sType), Shape::c_sArea, c_lAdd);
        PropertyRule crated("W", MCPropertySemantic::PostEdit), late("L", MCPropertySemantic::PreEdit),
            heard("H", MCPropertySemantic::InheritedPostEdit);
        AddRule(Crate::c_sType, width, crated);
        for (short type : {Shape::c_sType, Crate::c_sType, Shape::c_sType, Crate::c_sType})
            trace += set(Make(root, type), width, c_lAdd);
        AddRule(Shape::c_sType, width, heard);  // heirs only: the chains still rule no edit of width
        auto* box = static_cast<Box*>(Make(root, Box::c_sType));
        box->AddHeir(Make(root, Shape::c_sType));
        trace += set(box, width, c_lAdd);
        AddRule(Shape::c_sType, width, late);
        trace += set(Make(root, Shape::c_sType), width, c_lAdd);
        trace += set(Make(root, Shape::c_sType), fetch, c_lAdd);
        MCFactoryRegistry::SetWantPreFetch(fetch, true);
        trace += set(Make(root, Shape::c_sType), fetch, c_lAdd);
        root->Expunge(true);
        m_xLog.Take();
        return trace + " |" + TakeLog();
    };
    const std::string shortWay = run(true), longWay = run(false);
    EXPECT_EQ(shortWay, longWay);
    EXPECT_EQ(
        longWay,
        " set:0=7 set:0=7 set:0=7 set:8 set:0=0 set:0=7 set:8 set:0=t set:144=7 set:0=7 set:0=7 set:0=7 "
        "set:0=7 set:0=7 set:0=7 set:0=7 set:144=7 | 1 4 17 9 1 1 1 W:2 1 1 W:2 1 H:20000 1 L:1 1 1 1");
}
