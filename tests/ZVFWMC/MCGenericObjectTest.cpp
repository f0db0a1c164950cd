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

// Logs its name; set to act, it expunges the new object (and may throw) or removes and deletes `m_pxNext`.
enum Act { actNone, actExpunge, actExpungeAndThrow, actRemoveNext };
struct Hook : MCCreationHook {
    Hook(const char* name, std::string& log, Act act = actNone) : m_pcName(name), m_rsLog(log), m_eAct(act) {}
    void ItemCreated(MCObject* object) override {
        m_rsLog += m_pcName;
        if (m_eAct == actRemoveNext) {
            MCFactoryRegistry::HookCreateItem(*m_pxNext, false);
            delete std::exchange(m_pxNext, nullptr);
        } else if (m_eAct != actNone) {
            object->Expunge(true);
            if (m_eAct == actExpungeAndThrow)
                throw std::runtime_error("hook");
        }
    }
    const char* m_pcName;
    std::string& m_rsLog;
    Act m_eAct;
    Hook* m_pxNext = nullptr;
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
            mc::RegisterClass<Listed>("Listed");
        }
    }
    static MCItem* Create(short type, MCObject* owner) {
        return MCFactoryRegistry::CreateItem(type, owner, nullptr, nullptr);
    }
};

}  // namespace

TEST_F(CreationTest, RefusalsShowMessage601WithTheRequestedCode) {
    TestNode* owner = MakeNode();
    MCSPropertyRawAccessorT<long> accessor(3);
    ASSERT_TRUE(SetLong(owner, MCCodes::pInteger, 1) && owner->NullProperty(TestNode::c_sEmbedded, accessor));
    // The abstract type is refused below, yet known by its name.
    EXPECT_EQ(MCFactoryRegistry::Lookup(MCCodes::tAbstractObject).str(), "AbstractObject");
    // The core's own types carry exactly the flags a host selects them by.
    std::string flagged;
    for (unsigned long flags : {MCCodes::infoCoreObject, MCCodes::infoAddInHook}) {
        auto query = [flags](auto& v) { return MCMetaInfo::GetObjectTypes(flags, 0x7FFFFFFFUL & ~flags, v); };
        flagged += CodeList(query, true) + ";";
    }
    EXPECT_EQ(flagged, "2 301 302;27;");
    MessageLog messages;
    EXPECT_EQ(Create(31000, owner), nullptr);                       // unknown
    EXPECT_EQ(Create(MCCodes::tAbstractObject, nullptr), nullptr);  // abstract
    EXPECT_EQ(Create(MCCodes::pInteger, owner), nullptr);           // has a value
    // A nulled embedded property is given back; once set it is refused like any other.
    EXPECT_EQ(Create(TestNode::c_sEmbedded, owner), &owner->Embedded());
    ASSERT_TRUE(SetLong(owner, TestNode::c_sEmbedded, 4));
    EXPECT_EQ(Create(TestNode::c_sEmbedded, owner), nullptr);
    // An alias of Reference is made as one and keeps its own code.
    auto* parent = dynamic_cast<MCSRef*>(Create(MCCodes::pParent, owner));
    EXPECT_EQ(parent ? parent->GetType() : 0, MCCodes::pParent);
    // Setting an unknown type is the same refusal, seen as false; an object type is no property.
    EXPECT_FALSE(owner->SetProperty(31000, accessor, 1) ||
                 owner->SetProperty(MCGenericObject::c_sType, accessor, 1));
    // A concrete type under a negative code is refused without a message.
    EXPECT_EQ(Create(c_sNegative, owner), nullptr);
    EXPECT_EQ(messages.Text(),
              "601(0x10: 31000) 601(0x10: 1) 601(0x10: 87) 601(0x10: 7101) 601(0x10: 31000) 601(0x10: 2)");
}

// A calculated alias is made with the flags of its registration, also when a read makes it; reading an
// absent stored property makes nothing. Pool records are shared per item size, and asking for a pool enters
// a default one. Initializing again adds no factory and no pool entry.
TEST_F(CreationTest, CalculatedAliasesAreMadeOnReadPoolsGoBySizeAndInitializingIsOnce) {
    MCObject* object = Make();
    MCSPropertyRawAccessorT<long> accessor;
    EXPECT_TRUE(object->GetProperty(c_sCalculated, accessor));
    EXPECT_FALSE(object->GetProperty(MCCodes::pInteger, accessor) ||
                 object->FindProperty(MCCodes::pInteger, true));
    const MCProperty* made = object->FindProperty(c_sCalculated, false);
    ASSERT_NE(dynamic_cast<const MCSPropertyT<long>*>(made), nullptr);
    EXPECT_EQ(made->GetFlags(), MCItem::itemPreFetch | MCItem::itemPreFetchType | MCItem::itemFlag100);
    constexpr unsigned int size = 4099;  // no class of the core has this size
    EXPECT_EQ(MCFactoryRegistry::GetPoolCount(size), 0);
    EXPECT_EQ(MCFactoryRegistry::GetPool(size), 0u);
    EXPECT_EQ(MCFactoryRegistry::GetPoolCount(size), 1);
    EXPECT_TRUE(MCFactoryRegistry::RegisterInitialPoolCount(size + 1, 10) &&
                MCFactoryRegistry::RegisterInitialPoolCount(size + 1, 10));
    EXPECT_EQ(MCFactoryRegistry::GetPoolCount(size + 1), 21);
    EXPECT_EQ(MCFactoryRegistry::GetPool(size + 1), 0u);
    unsigned long flags = 0, again = 0;
    const long pool = MCFactoryRegistry::GetPoolCount(sizeof(MCGenericObject));
    ASSERT_TRUE(MCFactoryRegistry::GetFlags(MCGenericObject::c_sType, flags));
    MdlCore::Initialize();
    EXPECT_TRUE(MCFactoryRegistry::GetFlags(MCGenericObject::c_sType, again) && again == flags);
    EXPECT_EQ(MCFactoryRegistry::GetPoolCount(sizeof(MCGenericObject)), pool);
}

// Hooks hear of objects in the order they came, once each, and not of properties; the live table follows
// objects and stays when emptied. A table made when a host first asks for it lists what lives then,
// whichever of the oldest, a middle one and the youngest went before, and follows every change after.
TEST_F(CreationTest, HooksAndTheLiveTablesFollowObjects) {
    std::string log;
    Hook first("1", log), second("2", log);
    EXPECT_TRUE(MCFactoryRegistry::HookCreateItem(first, true) &&
                MCFactoryRegistry::HookCreateItem(second, true));
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
    EXPECT_EQ(
        log + " " + std::to_string(live->Entries() - before) + " " + std::to_string(live->Contains(inner)),
        "122 1 1");
    node->Expunge(true);
    EXPECT_EQ(live->Entries(), before - 1);
    EXPECT_FALSE(MCFactoryRegistry::GetInstances(30999, live, nullptr));

    std::map<char, MCObject*> made;
    live = nullptr;
    // Each step makes (+) or expunges (-) the objects it names; the table must then list those after "=".
    for (const std::string step : {"+abcdef-adf=bce", "+g-bg=ce", "+h-e=ch"}) {
        SCOPED_TRACE(step);
        char act = 0;
        for (char name : step.substr(0, step.find('='))) {
            if (name == '+' || name == '-')
                act = name;
            else if (act == '+')
                made[name] = Named(std::string(1, name).c_str(), nullptr, Listed::c_sType);
            else
                made[name]->Expunge(true);
        }
        ASSERT_TRUE(live || MCFactoryRegistry::GetInstances(Listed::c_sType, live, nullptr));
        std::string names;
        for (ZVTHTableIterT<MCObject*> it(*live); ++it;)
            names += NameOf(it.Key());
        std::sort(names.begin(), names.end());
        EXPECT_EQ(names, step.substr(step.find('=') + 1));
    }
    ZVTHTableT<MCObject*>* again = nullptr;
    EXPECT_TRUE(MCFactoryRegistry::GetInstances(Listed::c_sType, again, nullptr) && again == live);
}

// Host code run by the creation may take the new object or a later hook: the creation then answers null
// (or lets the exception pass) without reading the object again, and a removed hook is not called.
TEST_F(CreationTest, HostCodeThatTakesTheObjectOrALaterHookIsNotFollowed) {
    struct Taker : MCObjectSem {
        result Fire(mode nMode, MCObject* object, MCObjectSemContext* /*context*/) override {
            if (nMode == PostCreation && m_bArmed)
                object->Expunge(true);
            return resultContinue;
        }
        unsigned long GetInterests() const override { return PostCreation; }
        bool m_bArmed = false;
    } rule;
    const struct {
        const char* name;
        bool ruleExpunges;
        Act firstHook;
        const char* want;  // what the creation gave, then the hooks that heard of it
    } cases[] = {
        {"nothing taken", false, actNone, "made 12"},
        {"the creation rule expunges", true, actNone, "null "},
        {"a hook expunges", false, actExpunge, "null 1"},
        {"a hook expunges and throws", false, actExpungeAndThrow, "threw 1"},
        {"a hook removes and destroys the next", false, actRemoveNext, "made 1"},
    };
    MCFactoryContext context;
    MCObjectSemReg::Register(Loose::c_sType, &context, &rule, false);
    TestNode* owner = MakeNode();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::string log, made;
        Hook first("1", log, c.firstHook);
        first.m_pxNext = new Hook("2", log);
        ASSERT_TRUE(MCFactoryRegistry::HookCreateItem(first, true) &&
                    MCFactoryRegistry::HookCreateItem(*first.m_pxNext, true));
        rule.m_bArmed = c.ruleExpunges;
        try {
            made = Create(Loose::c_sType, owner) ? "made" : "null";
        } catch (const std::runtime_error&) {
            made = "threw";
        }
        MCFactoryRegistry::HookCreateItem(first, false);
        if (first.m_pxNext) {
            MCFactoryRegistry::HookCreateItem(*first.m_pxNext, false);
            delete first.m_pxNext;
        }
        EXPECT_EQ(made + " " + log, c.want);
    }
    owner->Expunge(true);
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
    EXPECT_EQ(made ? made->GetOwner(0, MCItem::rttiExact) : nullptr, plain);
    EXPECT_NE(g_pxStrict->CreateItem(Loose::c_sType, MakeNode(), nullptr), nullptr);
}
