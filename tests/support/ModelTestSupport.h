#ifndef MODELTESTSUPPORT_H
#define MODELTESTSUPPORT_H

// Shared pieces of the object store tests: a fixture on the initialized core metamodel that takes down
// every tree a test made, an observer that renders what it hears as one string, TestNode, a host object
// class written the way a host writes one (own factory, both constructors, an embedded property), and a
// runner that gives a test of call depth a small stack.

#include <pthread.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "ModelCore/ModelCore.h"

/// A list of the given values, for accessors and filters that take one.
template <class T>
ZVTSList<T> ListOf(std::initializer_list<T> values) {
    ZVTSList<T> list;
    for (const T& value : values)
        list.Append(value);
    return list;
}

/// Renders every event it receives: "PropertySet(<id>,<property type>,<hint code>)",
/// "PropertyNulled(<id>,<type>)", "SubjectDestroyed(<id>)", "ReferenceCleared(<id>)",
/// "ObjectCreated(<id>)", "Event<type>" for any other, separated by blanks.
class EventLog : public MCSubscriber {
public:
    void Notify(MCEvent& event) override {
        static const char* const names[] = {"PropertySet", "PropertyNulled", "ObjectCreated",
                                            "SubjectDestroyed", "ReferenceCleared"};
        const long type = event.GetEventType();
        std::string line = "Event" + std::to_string(type);
        if (type >= MCEvent::PropertySet && type <= MCEvent::ReferenceCleared) {
            line =
                names[type - 1] + ("(" + std::to_string(static_cast<MCObject*>(event.GetSubject())->GetId()));
            if (type <= MCEvent::PropertyNulled)
                line += "," + std::to_string(event.GetProperty()->GetType());
            if (type == MCEvent::PropertySet)
                line += "," + std::to_string(event.GetHintCode());
            line += ")";
        }
        m_sLog += (m_sLog.empty() ? "" : " ") + line;
        if (m_pxOnNotify)
            m_pxOnNotify(event);
    }
    /// What was heard since the last call, then forgets it.
    std::string Take() { return std::exchange(m_sLog, std::string()); }

    std::string m_sLog;
    void (*m_pxOnNotify)(MCEvent&) = nullptr;
};

/// Subscribes `subscriber` to `subject` with `type` for the scope of the guard; both must outlive it.
class Subscription {
public:
    Subscription(MCSubject* subject, MCSubscriber* subscriber, unsigned type = MCEvent::subscriberObserver)
        : m_pxSubject(subject), m_pxSubscriber(subscriber), m_nType(type) {
        subject->AddSubscriber(subscriber, type);
    }
    ~Subscription() { m_pxSubject->RemoveSubscriber(m_pxSubscriber, m_nType); }
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;

private:
    MCSubject* m_pxSubject;
    MCSubscriber* m_pxSubscriber;
    unsigned m_nType;
};

/// A host class: type 7001, subtype of GenericObject's supertype AbstractObject, with an embedded
/// Integer under the alias code 7101. Counts its constructions and destructions.
class TestNode : public MCObject {
public:
    static constexpr short c_sType = 7001;
    static constexpr short c_sEmbedded = 7101;

    static inline int c_nAlive = 0;
    static inline int c_nDestroyed = 0;
    // What the working constructor saw of its object once MCObject's part was done.
    static inline std::string c_sSeenInConstructor;

    MCSPropertyT<long>& Embedded() { return m_xEmbedded; }

    /// Registers the type and its factory once per process.
    static void Register() {
        static bool registered = false;
        if (registered)
            return;
        registered = true;
        MCFactoryRegistry::RegisterAliasProperty(c_sEmbedded, "Embedded", MCCodes::pInteger, true, false,
                                                 false, false);
        new MCObjectFactoryT<TestNode, MCObject>(c_sType, "TestNode", 1, 0, 10, 0, false, false);
    }

protected:
    ZVTBoolean IsType_(short type) const override { return MCObject::IsType_(type); }

private:
    friend class MCObjectFactoryT<TestNode, MCObject>;

    TestNode(short type, MCFactorySignature& signature, MCFactoryContext* context)
        : MCObject(type, signature, context), m_xEmbedded(c_sEmbedded, this) {
        RegisterLevel(c_sType, context);
    }
    TestNode(MCObject* owner, MCFactoryContext* context)
        : MCObject(c_sType, owner, context), m_xEmbedded(c_sEmbedded, this) {
        RegisterLevel(c_sType, context);
        ++c_nAlive;
        ZVTHTableT<MCObject*>* live = nullptr;
        const bool listed = MCFactoryRegistry::GetInstances(c_sType, live, nullptr) && live->Contains(this);
        c_sSeenInConstructor = "id " + std::string(GetId() > 0 ? "set" : "missing") + ", resolves " +
                               (ResolveId(GetId()) == this ? "yes" : "no") + ", live " +
                               (listed ? "yes" : "no");
    }
    ~TestNode() override {
        --c_nAlive;
        ++c_nDestroyed;
    }

    MCSPropertyT<long> m_xEmbedded;
};

/// A factory context that declines rules and creation events, for chains too long to announce.
struct QuietContext : MCFactoryContext {
    ZVTBoolean SemanticsNeeded() override { return false; }
};

/// Every test runs on the initialized core with TestNode registered; trees made through Make are
/// expunged at the end, and no TestNode may survive the test.
class ModelTest : public ::testing::Test {
public:
    /// The name of `object`, "-" when it has none.
    static std::string NameOf(const MCObject* object) {
        MCSPropertyRawAccessorT<ZVTString> accessor;
        return object->GetProperty(MCCodes::pName, accessor) ? accessor.GetValue().str() : "-";
    }
    // The change flags of accessors, as the tests spell them.
    static constexpr long c_lAdd = MCPropertyAccessor::accessAdd;
    static constexpr long c_lReplace = MCPropertyAccessor::accessReplace;
    static constexpr long c_lRemove = MCPropertyAccessor::accessRemove;
    /// The id of `object` as text, "-" for null.
    static std::string Id(const MCObject* object) { return object ? std::to_string(object->GetId()) : "-"; }
    /// A new object in the id space `space`, asking for `id` (0: the next one); the test takes it down.
    static MCObject* MakeWith(long id, MCIdSpace& space, MCObject* owner) {
        struct : MCFactoryContext {
            long RequestId() override { return m_lId; }
            MCIdSpace* GetIdSpace() override { return m_pxSpace; }
            long m_lId = 0;
            MCIdSpace* m_pxSpace = nullptr;
        } context;
        context.m_lId = id;
        context.m_pxSpace = &space;
        return static_cast<MCObject*>(
            MCFactoryRegistry::CreateItem(MCGenericObject::c_sType, owner, &context, nullptr));
    }

protected:
    void SetUp() override {
        MdlCore::Initialize();
        TestNode::Register();
        m_nAliveAtStart = TestNode::c_nAlive;
    }
    void TearDown() override {
        for (auto it = m_xRoots.rbegin(); it != m_xRoots.rend(); ++it) {
            if (MCObject::ResolveId(it->second) == it->first)
                it->first->Expunge(true);
        }
        EXPECT_EQ(TestNode::c_nAlive, m_nAliveAtStart) << "a TestNode outlived its test";
    }

    /// A new object of `type` under `owner` (null: a root, expunged at the end of the test).
    MCObject* Make(MCObject* owner = nullptr, short type = MCGenericObject::c_sType) {
        auto* object = static_cast<MCObject*>(MCFactoryRegistry::CreateItem(type, owner, nullptr, nullptr));
        if (object && !owner)
            m_xRoots.emplace_back(object, object->GetId());
        return object;
    }
    /// A chain of `length` objects of `type` made quietly under `root` (null: the first is a root the test
    /// takes down itself); the last one.
    static MCObject* MakeChain(MCObject* root, int length, short type = MCGenericObject::c_sType) {
        QuietContext quiet;
        for (int i = 0; i < length; ++i)
            root = static_cast<MCObject*>(MCFactoryRegistry::CreateItem(type, root, &quiet, nullptr));
        return root;
    }
    TestNode* MakeNode(MCObject* owner = nullptr) {
        return static_cast<TestNode*>(Make(owner, TestNode::c_sType));
    }
    /// A new object as Make makes it, named `name` (null: left without a name).
    MCObject* Named(const char* name, MCObject* owner = nullptr, short type = MCGenericObject::c_sType) {
        MCObject* object = Make(owner, type);
        MCSPropertyRawAccessorT<ZVTString> accessor{ZVTString(name ? name : "")};
        if (name)
            object->SetProperty(MCCodes::pName, accessor, MCPropertyAccessor::accessAdd);
        return object;
    }
    /// Sets `from`'s reference `type` to `to`, or appends `to` when `type` is a list of references.
    static void Link(MCObject* from, short type, MCObject* to) {
        if (MCFactoryRegistry::Translate(type, true) == MCCodes::pReferenceList) {
            MCVRefAccessor accessor(to);
            from->SetProperty(type, accessor, MCPropertyAccessor::accessAdd);
        } else {
            MCSRefAccessor accessor(to);
            from->SetProperty(type, accessor, MCPropertyAccessor::accessAdd);
        }
    }

    /// Sets a long through an active (or raw) accessor.
    static bool SetLong(MCObject* object, short type, long value, long flags = 1, bool active = true) {
        if (active) {
            MCSPropertyAccessorT<long> accessor(value);
            return object->SetProperty(type, accessor, flags);
        }
        MCSPropertyRawAccessorT<long> accessor(value);
        return object->SetProperty(type, accessor, flags);
    }
    /// `object`'s property of `type`, writable for the test (`withNulled` as FindProperty takes it).
    static MCProperty* PropertyOf(const MCObject* object, short type, bool withNulled = true) {
        return const_cast<MCProperty*>(object->FindProperty(type, withNulled));
    }
    /// The long of `type`, or "-" when GetProperty fails.
    static std::string GetLong(const MCObject* object, short type) {
        MCSPropertyRawAccessorT<long> accessor;
        return object->GetProperty(type, accessor) ? std::to_string(accessor.GetValue()) : "-";
    }

    // Declared before the roots so that it is still there when they go at the end of the test.
    EventLog m_xLog;
    std::vector<std::pair<MCObject*, long>> m_xRoots;
    int m_nAliveAtStart = 0;
};

/// Runs `body` on a thread whose stack holds `bytes`, so a test of call depth fails the same way in
/// every build rather than only where frames are large. False when the thread could not be made.
inline bool RunOnStack(std::size_t bytes, const std::function<void()>& body) {
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return false;
    pthread_t thread;
    const bool made = pthread_attr_setstacksize(&attributes, bytes) == 0 &&
                      pthread_create(
                          &thread, &attributes,
                          [](void* argument) -> void* {
                              (*static_cast<const std::function<void()>*>(argument))();
                              return nullptr;
                          },
                          const_cast<std::function<void()>*>(&body)) == 0;
    pthread_attr_destroy(&attributes);
    return made && pthread_join(thread, nullptr) == 0;
}

#endif
