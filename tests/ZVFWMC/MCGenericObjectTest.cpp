// Creation through the registry: the refusals of CreateItem with message 601, alias and calculated codes,
// a second initializing, creation hooks, pools, the table of live objects and the owner checks of object
// factories.

#include <algorithm>
#include <map>

#include "ModelCore/ModelCoreModern.h"
#include "support/ModelTestSupport.h"
#include "support/RegistryTestSupport.h"

namespace {

constexpr short c_sCalculated = 7301;  // a calculated alias of Integer
constexpr short c_sNegative = -7302;   // a concrete property type under a negative code

struct Hook : MCCreationHook {
    Hook(const char* name, std::string& log) : m_pcName(name), m_rsLog(log) {}
    void ItemCreated(MCObject* /*object*/) override { m_rsLog += m_pcName; }
    const char* m_pcName;
    std::string& m_rsLog;
};

// An object class with open constructors, made by factories that want TestNode owners.
class Loose : public MCObject {
public:
    static constexpr short c_sType = 30001;
    static constexpr short c_sTyped = 30002;
    Loose(short type, MCFactorySignature& signature, MCFactoryContext* context)
        : MCObject(type, signature, context) {}
    Loose(MCObject* owner, MCFactoryContext* context) : MCObject(c_sType, owner, context) {}
};

// A type that no other test makes, so that the first ask for its table of live objects is this file's.
class Listed : public mc::HostClass<30003> {
public:
    static void Register() { mc::RegisterClass<Listed>("Listed"); }

private:
    friend mc::FactoryOf<Listed>;
    using HostClass::HostClass;
};

MCFactory* g_pxStrict = nullptr;
MCFactory* g_pxTyped = nullptr;

class CreationTest : public ModelTest {
protected:
    void SetUp() override {
        ModelTest::SetUp();
        static bool registered = false;
        if (!registered) {
            registered = true;
            MCFactoryRegistry::RegisterAliasProperty(c_sCalculated, "Calculated", MCCodes::pInteger, false,
                                                     false, true, true);
            EXPECT_TRUE((new MCPropertyFactoryT<MCSPropertyT<long>>(c_sNegative, "Negative", false, false, 0))
                            ->IsRegistered());
            g_pxStrict = new MCFactoryT<Loose, TestNode>(Loose::c_sType, "Strict", 1, 0, false, false);
            g_pxTyped =
                new MCObjectFactoryT<Loose, TestNode>(Loose::c_sTyped, "Typed", 1, 0, 0, 0, false, false);
        }
    }
};

}  // namespace

TEST_F(CreationTest, RefusalsShowMessage601WithTheRequestedCode) {
    TestNode* owner = MakeNode();
    ASSERT_TRUE(SetLong(owner, MCCodes::pInteger, 1));
    MCSPropertyRawAccessorT<long> accessor(3);
    ASSERT_TRUE(owner->NullProperty(TestNode::c_sEmbedded, accessor));
    MessageLog messages;
    auto create = [](short type, MCObject* on) {
        return MCFactoryRegistry::CreateItem(type, on, nullptr, nullptr);
    };
    EXPECT_EQ(create(31000, owner), nullptr);                       // unknown
    EXPECT_EQ(create(MCCodes::tAbstractObject, nullptr), nullptr);  // abstract
    EXPECT_EQ(create(MCCodes::pInteger, owner), nullptr);           // has a value
    // A nulled embedded property is given back; once set it is refused like any other.
    EXPECT_EQ(create(TestNode::c_sEmbedded, owner), &owner->Embedded());
    ASSERT_TRUE(SetLong(owner, TestNode::c_sEmbedded, 4));
    EXPECT_EQ(create(TestNode::c_sEmbedded, owner), nullptr);
    // An alias of Reference is made as one and keeps its own code.
    auto* parent = dynamic_cast<MCSRef*>(create(MCCodes::pParent, owner));
    ASSERT_NE(parent, nullptr);
    EXPECT_EQ(parent->GetType(), MCCodes::pParent);
    // Setting an unknown type is the same refusal, seen as false; an object type is no property.
    EXPECT_FALSE(owner->SetProperty(31000, accessor, 1));
    EXPECT_FALSE(owner->SetProperty(MCGenericObject::c_sType, accessor, 1));
    // A concrete type under a negative code is refused without a message.
    EXPECT_EQ(create(c_sNegative, owner), nullptr);
    EXPECT_EQ(messages.Text(),
              "601(0x10: 31000) 601(0x10: 1) 601(0x10: 87) 601(0x10: 7101) 601(0x10: 31000) 601(0x10: 2)");
    owner->Expunge(true);
}

// A calculated alias is made with the flags of its registration, also when a read makes it; reading an
// absent stored property makes nothing. Initializing again adds no factory and no pool entry.
TEST_F(CreationTest, CalculatedAliasesAreMadeOnReadAndInitializingIsOnce) {
    MCObject* object = Make();
    MCSPropertyRawAccessorT<long> accessor;
    EXPECT_TRUE(object->GetProperty(c_sCalculated, accessor));
    EXPECT_FALSE(object->GetProperty(MCCodes::pInteger, accessor));
    EXPECT_EQ(object->FindProperty(MCCodes::pInteger, true), nullptr);
    const auto* made = dynamic_cast<const MCSPropertyT<long>*>(object->FindProperty(c_sCalculated, false));
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->GetFlags(), MCItem::itemPreFetch | MCItem::itemPreFetchType | MCItem::itemFlag100);

    unsigned long flags = 0, again = 0;
    ASSERT_TRUE(MCFactoryRegistry::GetFlags(MCGenericObject::c_sType, flags));
    const long pool = MCFactoryRegistry::GetPoolCount(sizeof(MCGenericObject));
    MdlCore::Initialize();
    EXPECT_TRUE(MCFactoryRegistry::GetFlags(MCGenericObject::c_sType, again));
    EXPECT_EQ(again, flags);
    EXPECT_EQ(MCFactoryRegistry::GetPoolCount(sizeof(MCGenericObject)), pool);
}

// Hooks hear of objects in the order they came, once each, and not of properties; the live table follows
// objects and stays when emptied.
TEST_F(CreationTest, HooksAndTheLiveTableFollowObjects) {
    std::string log;
    Hook first("1", log), second("2", log);
    EXPECT_TRUE(MCFactoryRegistry::HookCreateItem(first, true));
    EXPECT_TRUE(MCFactoryRegistry::HookCreateItem(second, true));
    EXPECT_FALSE(MCFactoryRegistry::HookCreateItem(first, true));
    TestNode* node = MakeNode();
    ASSERT_TRUE(SetLong(node, MCCodes::pInteger, 1));
    EXPECT_TRUE(MCFactoryRegistry::HookCreateItem(first, false));
    EXPECT_FALSE(MCFactoryRegistry::HookCreateItem(first, false));
    ZVTHTableT<MCObject*>* live = nullptr;
    ASSERT_TRUE(MCFactoryRegistry::GetInstances(TestNode::c_sType, live, nullptr));
    const size_t before = live->Entries();
    TestNode* inner = MakeNode(node);
    EXPECT_TRUE(MCFactoryRegistry::HookCreateItem(second, false));
    EXPECT_EQ(log, "122");
    EXPECT_EQ(live->Entries(), before + 1);
    EXPECT_TRUE(live->Contains(inner));
    node->Expunge(true);
    EXPECT_EQ(live->Entries(), before - 1);
    EXPECT_FALSE(MCFactoryRegistry::GetInstances(30999, live, nullptr));
}

// The table is made when a host first asks for it: it lists what lives then, whichever of the oldest,
// a middle one and the youngest went before, and follows every change after.
TEST_F(CreationTest, TheLiveTableMadeOnTheFirstAskListsWhatLives) {
    Listed::Register();
    auto names = [](ZVTHTableT<MCObject*>* table) {
        std::vector<std::string> found;
        for (ZVTHTableIterT<MCObject*> it(*table); ++it;)
            found.push_back(NameOf(it.Key()));
        std::sort(found.begin(), found.end());
        std::string out;
        for (const std::string& name : found)
            out += name;
        return out;
    };
    std::map<char, MCObject*> made;
    for (char name : std::string("abcdef"))
        made[name] = Named(std::string(1, name).c_str(), nullptr, Listed::c_sType);
    for (char gone : std::string("adf"))
        made[gone]->Expunge(true);
    ZVTHTableT<MCObject*>* live = nullptr;
    ASSERT_TRUE(MCFactoryRegistry::GetInstances(Listed::c_sType, live, nullptr));
    EXPECT_EQ(names(live), "bce");
    made['g'] = Named("g", nullptr, Listed::c_sType);
    made['b']->Expunge(true);
    made['g']->Expunge(true);
    EXPECT_EQ(names(live), "ce");
    made['h'] = Named("h", nullptr, Listed::c_sType);
    made['e']->Expunge(true);
    EXPECT_EQ(names(live), "ch");
    ZVTHTableT<MCObject*>* again = nullptr;
    ASSERT_TRUE(MCFactoryRegistry::GetInstances(Listed::c_sType, again, nullptr));
    EXPECT_EQ(again, live);
}

// Host code run by the creation may take the new object or a later hook: the creation then answers null
// (or lets the exception pass) without reading the object again, and a removed hook is not called.
TEST_F(CreationTest, HostCodeThatTakesTheObjectOrALaterHookIsNotFollowed) {
    enum Act { actNone, actExpunge, actExpungeAndThrow, actRemoveSecond };
    struct Taker : MCObjectSem {
        result Fire(mode nMode, MCObject* object, MCObjectSemContext* /*context*/) override {
            if (nMode == PostCreation && m_bArmed)
                object->Expunge(true);
            return resultContinue;
        }
        unsigned long GetInterests() const override { return PostCreation; }
        bool m_bArmed = false;
    } rule;
    struct ActingHook : MCCreationHook {
        explicit ActingHook(std::string& log) : m_rsLog(log) {}
        void ItemCreated(MCObject* object) override {
            m_rsLog += "1";
            if (m_eAct == actRemoveSecond) {
                MCFactoryRegistry::HookCreateItem(*m_pxSecond, false);
                delete m_pxSecond;
                m_pxSecond = nullptr;
            } else if (m_eAct != actNone) {
                object->Expunge(true);
                if (m_eAct == actExpungeAndThrow)
                    throw std::runtime_error("hook");
            }
        }
        std::string& m_rsLog;
        Act m_eAct = actNone;
        Hook* m_pxSecond = nullptr;
    };
    struct Case {
        const char* name;
        bool ruleExpunges;
        Act firstHook;
        const char* want;  // what the creation gave, then the hooks that heard of it
    };
    const Case cases[] = {
        {"nothing taken", false, actNone, "made 12"},
        {"the creation rule expunges", true, actNone, "null "},
        {"a hook expunges", false, actExpunge, "null 1"},
        {"a hook expunges and throws", false, actExpungeAndThrow, "threw 1"},
        {"a hook removes and destroys the next", false, actRemoveSecond, "made 1"},
    };
    MCFactoryContext context;
    MCObjectSemReg::Register(Loose::c_sType, &context, &rule, false);
    TestNode* owner = MakeNode();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string log;
        ActingHook first(log);
        first.m_eAct = c.firstHook;
        first.m_pxSecond = new Hook("2", log);
        ASSERT_TRUE(MCFactoryRegistry::HookCreateItem(first, true));
        ASSERT_TRUE(MCFactoryRegistry::HookCreateItem(*first.m_pxSecond, true));
        rule.m_bArmed = c.ruleExpunges;
        std::string made;
        try {
            made = MCFactoryRegistry::CreateItem(Loose::c_sType, owner, nullptr, nullptr) ? "made" : "null";
        } catch (const std::runtime_error&) {
            made = "threw";
        }
        rule.m_bArmed = false;
        MCFactoryRegistry::HookCreateItem(first, false);
        if (first.m_pxSecond) {
            MCFactoryRegistry::HookCreateItem(*first.m_pxSecond, false);
            delete first.m_pxSecond;
        }
        EXPECT_EQ(made + " " + log, c.want);
    }
    owner->Expunge(true);
}

TEST_F(CreationTest, PoolRecordsAreSharedPerItemSize) {
    constexpr unsigned int size = 4099;  // no class of the core has this size
    EXPECT_EQ(MCFactoryRegistry::GetPoolCount(size), 0);
    EXPECT_EQ(MCFactoryRegistry::GetPool(size), 0u);
    EXPECT_EQ(MCFactoryRegistry::GetPoolCount(size), 1);  // GetPool entered a default record
    EXPECT_TRUE(MCFactoryRegistry::RegisterInitialPoolCount(size + 1, 10));
    EXPECT_TRUE(MCFactoryRegistry::RegisterInitialPoolCount(size + 1, 10));
    EXPECT_EQ(MCFactoryRegistry::GetPoolCount(size + 1), 21);
    EXPECT_EQ(MCFactoryRegistry::GetPool(size + 1), 0u);
}

TEST_F(CreationTest, ObjectFactoriesCheckTheOwner) {
    // An owner of the wrong class for MCFactoryT is a programming error.
    MCObject* plain = Make();
    EXPECT_THROW(g_pxStrict->CreateItem(Loose::c_sType, plain, nullptr), EXUnexpected);
    EXPECT_EQ(plain->GetOwneeCount(), 0);
    // An object factory accepts an owner of one of the type's owner types, else declines.
    EXPECT_EQ(g_pxTyped->CreateItem(Loose::c_sTyped, plain, nullptr), nullptr);
    ASSERT_TRUE(MCFactoryRegistry::AddOwnerType(Loose::c_sTyped, MCGenericObject::c_sType));
    auto* made = static_cast<MCObject*>(g_pxTyped->CreateItem(Loose::c_sTyped, plain, nullptr));
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->GetOwner(0, MCItem::rttiExact), plain);
    EXPECT_NE(g_pxStrict->CreateItem(Loose::c_sType, MakeNode(), nullptr), nullptr);
}
