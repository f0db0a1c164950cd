// Accessors: what each change flag moves and fires, list changes and their hint codes, the accessor's own
// list, nulling, the flag rules of SetPropertyFlag and of the property's own flag hooks, the short way
// of a first set, and rules that end the object or the property of a change.

#include "support/ModelTestSupport.h"
#include "support/RuleTestSupport.h"

namespace {

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

std::string Event(const char* kind, const MCObject* object, short type, const char* hint = ",0") {
    return std::string(kind) + "(" + ModelTest::Id(object) + "," + std::to_string(type) + hint + ")";
}

// A host's accessor classes that change nothing: a first set through one takes the long way.
template <class T>
struct HostAccessor : MCSPropertyAccessorT<T> {
    using MCSPropertyAccessorT<T>::MCSPropertyAccessorT;
};
struct HostRefAccessor : MCSRefAccessor {
    using MCSRefAccessor::MCSRefAccessor;
};

using PA = MCPropertyAccessor;

// Every change flag a first set is tried with.
constexpr long c_lAdd = PA::accessAdd, c_lFlags = PA::accessFlags;
constexpr long c_alFirstSetFlags[] = {c_lAdd,   PA::accessRemove,  c_lAdd | PA::accessForce,    0,
                                      c_lFlags, c_lAdd | c_lFlags, c_lAdd | PA::accessInherited};

// " set" or " refused", then the flags of the property of `type` or "none".
std::string Outcome(bool set, const MCObject* object, short type) {
    const MCProperty* property = object->MCObject::FindProperty(type, true);
    return std::string(set ? " set:" : " refused:") +
           (property ? std::to_string(property->GetFlags()) : "none");
}

// Has `log` add the flags of the change behind each PropertySet to the rule log.
void LogChangeFlags(EventLog& log) {
    log.m_pxOnNotify = [](MCEvent& event) {
        if (auto* context = static_cast<MCPropertySemanticContext*>(event.GetHintPointer()))
            RuleLog() += " " + std::to_string(context->GetActiveAccessor()->m_lFlags);
    };
}

}  // namespace

using AccessorTest = ModelTest;

// Each row starts from an Integer holding 5 with SA set and sets it once; an active accessor and a raw one
// leave value and flags alike, and only the active one fires.
TEST_F(AccessorTest, FlagsDecideWhatMovesAndWhatFires) {
    const struct {
        long lValue, lFlags;
        unsigned short uAccessorFlags;
        const char* pcAfter;  // value and property flags
        bool bFires;
    } cases[] = {
        {6, c_lAdd, 0, "6 0", true},     // a value change clears SA
        {6, c_lRemove, 0, "6 0", true},  // remove sets a single value too
        {5, c_lAdd, 0, "5 4", false},    // an equal value is no change
        {5, c_lAdd | PA::accessForce, 0, "5 0", true},
        {6, 0, 0, "5 4", false},  // no change bit: nothing moves
        // Flags alone write the accessor's flags only; with a value they keep the accessor's SA.
        {6, PA::accessFlags, MCItem::itemTemp, "5 1", false},
        {6, c_lAdd | PA::accessFlags, MCItem::itemSA, "6 4", true},
        {6, c_lAdd | PA::accessInherited, 0, "5 4", false},  // inherited: nothing moves
    };
    for (bool active : {true, false}) {
        for (const auto& c : cases) {
            SCOPED_TRACE(std::to_string(&c - cases) + (active ? " active" : " raw"));
            MCObject* object = Make();
            MCProperty* property =
                SetLong(object, MCCodes::pInteger, 5) ? PropertyOf(object, MCCodes::pInteger) : nullptr;
            ASSERT_TRUE(object->SetPropertyFlag(property, MCItem::itemSA, true));
            object->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
            MCSPropertyRawAccessorT<long> raw(c.lValue);
            MCSPropertyAccessorT<long> live(c.lValue);
            MCPropertyAccessor& accessor = active ? static_cast<MCPropertyAccessor&>(live) : raw;
            accessor.SetFlags(c.uAccessorFlags);
            EXPECT_TRUE(object->SetProperty(MCCodes::pInteger, accessor, c.lFlags));
            EXPECT_EQ(GetLong(object, MCCodes::pInteger) + " " + std::to_string(property->GetFlags()) + " " +
                          m_xLog.Take(),
                      c.pcAfter +
                          (active && c.bFires ? " " + Event("PropertySet", object, MCCodes::pInteger) : " "));
        }
    }
}

TEST_F(AccessorTest, ListChangesCarryTheirHintCodes) {
    MCObject* object = Make();
    object->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
    MCVPropertyAccessorT<long> accessor(ListOf({1L, 2L})), absent(9L), one(1L), three(3L);
    // A list is always set: adding what is there fires again, as does removing what is not; flags that
    // neither add nor replace remove; emptied by removals the list stays set.
    const struct {
        MCVPropertyAccessorT<long>* pxAccessor;
        long lFlags;
        const char* pcList;
        long lHint;
    } steps[] = {
        {&accessor, c_lAdd, "1 2", MCCodes::hintAdded},
        {&accessor, c_lAdd, "1 2 1 2", MCCodes::hintAdded},
        {&absent, c_lRemove, "1 2 1 2", MCCodes::hintRemoved},
        {&one, 0x40, "2 1 2", MCCodes::hintRemoved},
        {&three, c_lReplace | c_lAdd, "3", MCCodes::hintReplaced},
        {&three, c_lRemove, "", MCCodes::hintRemoved},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.pcList);
        EXPECT_TRUE(object->SetProperty(MCCodes::pIntegerList, *step.pxAccessor, step.lFlags));
        EXPECT_EQ(GetList(object), step.pcList);
        EXPECT_EQ(m_xLog.Take(), Event("PropertySet", object, MCCodes::pIntegerList,
                                       ("," + std::to_string(step.lHint)).c_str()));
    }

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

// Nulling tells the subscribers while the value is still there and deletes a free property. No accessor
// means the property's own active one, a raw one nulls silently, and another object's property or an
// absent one is refused without a word. A nulled embedded property stays; setting it is a change even to
// the value it kept. Reading through another value class leaves the accessor as it was.
TEST_F(AccessorTest, NullingSettingAgainAndReadingAnotherClass) {
    MCObject *object = Make(), *other = Make();
    static std::string s_sSeen;
    s_sSeen.clear();
    m_xLog.m_pxOnNotify = [](MCEvent& event) {
        if (event.GetEventType() == MCEvent::PropertyNulled)
            s_sSeen +=
                std::to_string(static_cast<const MCSPropertyT<long>*>(event.GetProperty())->GetValue());
    };
    object->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
    ASSERT_TRUE(SetLong(object, MCCodes::pInteger, 42) && SetLong(other, MCCodes::pInteger, 8));
    m_xLog.Take();
    EXPECT_FALSE(object->NullProperty(PropertyOf(other, MCCodes::pInteger), nullptr));
    EXPECT_TRUE(object->NullProperty(PropertyOf(object, MCCodes::pInteger), nullptr));
    EXPECT_EQ(m_xLog.Take() + " " + s_sSeen, Event("PropertyNulled", object, MCCodes::pInteger, "") + " 42");
    EXPECT_TRUE(!PropertyOf(object, MCCodes::pInteger) && GetLong(other, MCCodes::pInteger) == "8");
    MCSPropertyRawAccessorT<long> raw;
    EXPECT_FALSE(object->NullProperty(MCCodes::pInteger, raw));

    ASSERT_TRUE(SetLong(object, MCCodes::pInteger, 1));
    m_xLog.Take();
    EXPECT_TRUE(object->NullProperty(PropertyOf(object, MCCodes::pInteger), &raw));
    EXPECT_EQ(m_xLog.Take(), "");  // a raw accessor nulls silently

    // A free property left nulled goes at the next nulling, whether anyone hears it (`object`) or not.
    for (MCObject* owner : {other, object}) {
        ASSERT_NE(MCFactoryRegistry::CreateItem(MCCodes::pTypeCode, owner, nullptr, nullptr), nullptr);
        MCSPropertyAccessorT<long> active;
        EXPECT_TRUE(owner->NullProperty(MCCodes::pTypeCode, active));
        EXPECT_EQ(owner->FindProperty(MCCodes::pTypeCode, true), nullptr) << Id(owner);
    }
    m_xLog.Take();

    TestNode* node = MakeNode();
    ASSERT_TRUE(SetLong(node, TestNode::c_sEmbedded, 7) && node->NullProperty(TestNode::c_sEmbedded, raw));
    node->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
    EXPECT_TRUE(SetLong(node, TestNode::c_sEmbedded, 7));
    EXPECT_EQ(m_xLog.Take(), Event("PropertySet", node, TestNode::c_sEmbedded));

    MCSPropertyAccessorT<ZVTString> text(ZVTString("x"));
    ASSERT_TRUE(object->SetProperty(MCCodes::pString, text, c_lAdd));
    MCSPropertyRawAccessorT<long> number(99);
    number.SetFlags(MCItem::itemTemp);
    EXPECT_FALSE(object->GetProperty(MCCodes::pString, number));
    EXPECT_EQ(std::to_string(number.GetValue()) + " " + std::to_string(number.GetFlags()), "99 1");
}

TEST_F(AccessorTest, SetPropertyFlagGuardsTheValueFlags) {
    MCObject* object = Make();
    ASSERT_TRUE(SetLong(object, MCCodes::pInteger, 3));
    MCProperty* property = PropertyOf(object, MCCodes::pInteger);
    EXPECT_FALSE(object->SetPropertyFlag(property, MCItem::itemNulled, true) ||
                 object->SetPropertyFlag(property, MCItem::itemNL, false) ||
                 object->SetPropertyFlag(nullptr, MCItem::itemSA, true));
    EXPECT_TRUE(object->SetPropertyFlag(property, MCItem::itemTemp | MCItem::itemSA, true) &&
                object->SetPropertyFlag(property, MCItem::itemSA, false));
    EXPECT_EQ(property->GetFlags(), MCItem::itemTemp);
    // The property's own hooks: SetFlag never nulls, SetFlags un-nulls but cannot clear the calculated state.
    EXPECT_TRUE(property->SetFlag(MCItem::itemNulled, true));
    EXPECT_EQ(property->GetFlags(), MCItem::itemTemp);
    property->SetFlags(MCItem::itemPreFetch | MCItem::itemNulled);
    EXPECT_EQ(property->GetFlags(), MCItem::itemPreFetch);
    property->SetFlags(0);
    EXPECT_EQ(property->GetFlags(), MCItem::itemPreFetch);
}

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
            const std::string trace = Outcome(object->SetProperty(type, accessor, flags), object, type);
            ZVTString text;
            return trace + (object->GetPropertyString(type, text) ? "=" + std::string(text.str()) : "");
        };
        LogChangeFlags(m_xLog);
        MCObject* root = Make(nullptr, Shape::c_sType);
        root->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
        std::string trace;
        for (long flags : c_alFirstSetFlags)
            trace += set(Make(root, Shape::c_sType), width, flags);
        for (short type : {Shape::c_sLabel, Shape::c_sArea})
            trace += set(Make(root, Shape::c_sType), type, c_lAdd);
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

// The same for the core's single reference: every flag, a rule on one type of the code but not another, a
// target whose expunge has begun (set from a subscriber that hears it go), and whether the holder then
// watches its target.
TEST_F(RuleTest, AFirstReferenceEndsAlikeOnTheShortWayAndTheLongOne) {
    constexpr short c_sRef = 7717;
    static const bool registered = MCFactoryRegistry::RegisterAliasProperty(
        c_sRef, "OwnRef", MCCodes::pReference, true, false, false, false);
    ASSERT_TRUE(registered);
    static bool s_bCore = false;
    static MCObject* s_pxRoot = nullptr;
    static std::string s_sGoing;
    static auto set = [](MCObject* holder, MCObject* target, long flags) {
        HostRefAccessor host(target);
        MCSRefAccessor plain(target);
        MCPropertyAccessor& accessor = s_bCore ? static_cast<MCPropertyAccessor&>(plain) : host;
        std::string trace = Outcome(holder->SetProperty(c_sRef, accessor, flags), holder, c_sRef);
        MCSRefRawAccessor read;
        if (holder->GetProperty(c_sRef, read))
            trace += read.GetValue() == target ? "=t" : read.GetValue() ? "=?" : "=0";
        for (MCSubscriberListIter watchers(target); ++watchers;)
            trace += watchers.GetValue() == holder ? "+" : "";
        return trace;
    };
    auto run = [this](bool core) {
        s_bCore = core;
        LogChangeFlags(m_xLog);
        MCObject* root = s_pxRoot = Make(nullptr, Shape::c_sType);
        root->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
        MCObject* target = Make(root, Shape::c_sType);
        std::string trace;
        for (long flags : c_alFirstSetFlags)
            trace += set(Make(root, Shape::c_sType), target, flags);
        // Static: the registry keeps it past the test, and the second run registers it again.
        static PropertyRule crated("W", MCPropertySemantic::PostEdit);
        AddRule(Crate::c_sType, c_sRef, crated);
        for (short type : {Shape::c_sType, Crate::c_sType})
            trace += set(Make(root, type), target, c_lAdd);
        // A holder made while the target goes, and set to it from the target's own end.
        EventLog farewell;
        farewell.m_pxOnNotify = [](MCEvent& event) {
            if (event.GetEventType() == MCEvent::SubjectDestroyed)
                s_sGoing = set(static_cast<MCObject*>(
                                   MCFactoryRegistry::CreateItem(Shape::c_sType, s_pxRoot, nullptr, nullptr)),
                               static_cast<MCObject*>(event.GetSubject()), c_lAdd);
        };
        target->AddSubscriber(&farewell, MCEvent::subscriberObserver);
        target->Expunge(true);
        root->Expunge(true);
        m_xLog.Take();
        return trace + " |" + s_sGoing + " |" + TakeLog();
    };
    const std::string shortWay = run(true), longWay = run(false);
    EXPECT_EQ(shortWay, longWay);
    EXPECT_EQ(
        longWay,
        " set:0=t+ set:0=t+ set:0=t+ set:8 set:0=0 set:0=t+ set:8 set:0=t+ set:0=t+ | set:0=0 | 1 4 17 9 1 "
        "W:2 1 1 1 1 1 1 W:2 1 1");
}

// A rule may end the object of a change, or take its property away, whatever it answers: the change or
// read then stops there, with false, and writes or reads nothing of what went.
TEST_F(RuleTest, ARuleThatEndsTheObjectOrItsPropertyEndsTheChange) {
    using PS = MCPropertySemantic;
    enum Act { actExpunge, actExpungeQuietly, actNull };
    enum Op { opSet, opNull, opRead };
    static Act s_eAct;
    const struct {
        const char* pcName;
        unsigned long nMode;
        Op eOp;
        Act eAct;
        const char* pcExpected;  // answer, destroyed, object alive, value after
    } rows[] = {
        {"pre-edit ends the object and says so", PS::PreEdit, opSet, actExpunge, "0 1 gone"},
        {"pre-edit ends the object quietly", PS::PreEdit, opSet, actExpungeQuietly, "0 1 gone"},
        {"pre-edit nulls the property", PS::PreEdit, opSet, actNull, "0 0 alive -"},
        {"nulling ends the object", PS::PreDestructon, opNull, actExpunge, "0 1 gone"},
        {"calculation ends the object", PS::CalculateValue, opRead, actExpunge, "0 0 gone"},
        {"calculation nulls the property", PS::CalculateValue, opRead, actNull, "0 0 alive"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.pcName);
        MCObject* object = Make(Make(nullptr, Shape::c_sType), Shape::c_sType);
        const long id = object->GetId();
        SetLong(object, Shape::c_sWidth, 5);
        PropertyRule rule("R", row.nMode);
        s_eAct = row.eAct;
        rule.m_xAct = [](PS::mode, MCObject* target, MCProperty* property, MCPropertySemanticContext*) {
            if (s_eAct == actNull)
                target->NullProperty(property, nullptr);
            else
                target->Expunge(true);
            return s_eAct == actExpunge ? PS::resultObjectDestroyed : PS::resultContinue;
        };
        AddRule(Shape::c_sType, row.eOp == opRead ? Shape::c_sArea : Shape::c_sWidth, rule);
        MCSPropertyAccessorT<long> accessor(7);
        const bool answer = row.eOp == opSet    ? object->SetProperty(Shape::c_sWidth, accessor, c_lAdd)
                            : row.eOp == opNull ? object->NullProperty(Shape::c_sWidth, accessor)
                                                : object->GetProperty(Shape::c_sArea, accessor);
        const bool alive = MCObject::ResolveId(id) == object;
        std::string state = std::to_string(answer) + " " + std::to_string(accessor.GetObjectDestroyed()) +
                            (alive ? " alive" : " gone");
        if (alive && row.eOp != opRead)
            state += " " + GetLong(object, Shape::c_sWidth);
        EXPECT_EQ(state, row.pcExpected);
    }
}
