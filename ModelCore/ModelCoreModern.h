#ifndef MODELCOREMODERN_H
#define MODELCOREMODERN_H

// A thin layer for hosts over the plain API: scope objects, named registration, typed reads and writes,
// subscriptions that end themselves and range-for. Header-only and opt-in; everything here is made of
// public calls, so the two styles mix freely on the same model.

#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "ModelCore/ModelCore.h"
#include "platform/HUB.h"

namespace mc {

// ---------------------------------------------------------------------------------------------------
// The library's life

namespace detail {
// Reaches MCEnvironment's protected installer; never instantiated.
struct EnvironmentInstaller : MCEnvironment {
    static void Install(MCEnvironment* environment) { SetSingleton(environment); }
};
}  // namespace detail

/// Keeps the core alive while it lives: initializes it on construction and shuts it down when the last
/// Library of the process goes. The core starts once per process, so a Library made after the core was
/// shut down throws EXUnexpected. The environment, if given, stays with the host, is installed unless it
/// already is (another installed one throws EXUnexpected) and runs the shutdown through its Shutdown.
class Library {
public:
    explicit Library(MCEnvironment* environment = nullptr) : m_pxEnvironment(environment) {
        MdlCore::Initialize();
        if (!MCFactoryRegistry::IsRegistered(MCCodes::tGenericObject, nullptr))
            MC_THROW_UNEXPECTED("ModelCore/ModelCoreModern");
        if (environment != nullptr && MCEnvironment::GetInstance() != environment)
            detail::EnvironmentInstaller::Install(environment);
        ++Scopes();
    }
    ~Library() {
        if (--Scopes() > 0)
            return;
        if (m_pxEnvironment != nullptr) {
            m_pxEnvironment->NotifyOfShutdown();
            return;
        }
        // What the base environment's Shutdown does.
        HUB::Terminate();
        MdlCore::Terminate();
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

private:
    static int& Scopes() {
        static int scopes = 0;
        return scopes;
    }
    MCEnvironment* m_pxEnvironment;
};

// ---------------------------------------------------------------------------------------------------
// Host classes

template <short Type, class Base>
class HostClass;

namespace detail {
// Marks the levels made by HostClass, whose working constructors take the type last.
struct HostLevel {};

// MCObject with the constructor order of a HostClass level, so that every level passes the type down
// the same way.
class RootLevel : public MCObject, public HostLevel {
protected:
    RootLevel(short type, MCFactorySignature& signature, MCFactoryContext* context)
        : MCObject(type, signature, context) {}
    RootLevel(MCObject* owner, MCFactoryContext* context, short type) : MCObject(type, owner, context) {}
    ~RootLevel() override = default;
};

template <class Base>
using LevelBase = std::conditional_t<std::is_same_v<Base, MCObject>, RootLevel, Base>;
}  // namespace detail

/// The base of a host object class of type `Type` under the class level `Base` (MCObject or another
/// HostClass): both constructors enter the level into the chains of rules and reactions, and the type
/// test answers for `Type` and every level below. The host class inherits the constructors
/// (`using HostClass::HostClass;`), or writes its own for its members, and befriends mc::FactoryOf.
template <short Type, class Base = MCObject>
class HostClass : public detail::LevelBase<Base> {
    static_assert(std::is_same_v<Base, MCObject> || std::is_base_of_v<detail::HostLevel, Base>,
                  "a HostClass level stands on MCObject or on another HostClass");
    using Level = detail::LevelBase<Base>;

public:
    static constexpr short c_sType = Type;

protected:
    /// The prototype constructor, which only the factory calls.
    HostClass(short type, MCFactorySignature& signature, MCFactoryContext* context)
        : Level(type, signature, context) {
        MCObject::RegisterLevel(Type, context);
    }
    /// The working constructor of an object of this type under `owner`.
    HostClass(MCObject* owner, MCFactoryContext* context) : HostClass(owner, context, Type) {}
    /// The working constructor as a level below a class of type `type`.
    HostClass(MCObject* owner, MCFactoryContext* context, short type) : Level(owner, context, type) {
        MCObject::RegisterLevel(Type, context);
    }
    ~HostClass() override = default;

    ZVTBoolean IsType_(short type) const override { return type == Type || Level::IsType_(type); }
};

/// The factory RegisterClass makes for T; a host class names it a friend so it may reach the constructors.
template <class T>
using FactoryOf = MCObjectFactoryT<T, MCObject>;

/// How a host object type is registered; every field has the usual value. C++17 has no designated
/// initializers, so the setters name the fields in a chain: ClassOptions().Under(1010).OwnedBy(530).
struct ClassOptions {
    short supertype = MCCodes::tAbstractObject;  ///< the type it specializes
    short owner = 0;                             ///< the owner type recorded for it, 0 for none
    long expectedCount = 10;                     ///< how many objects the host expects, bookkeeping only
    bool first = false;   ///< records flagFirstOn in the type's flag word instead of flagFirstOff
    bool second = false;  ///< records flagSecondOn in the type's flag word instead of flagSecondOff

    /// Sets the supertype.
    ClassOptions& Under(short type) {
        supertype = type;
        return *this;
    }
    /// Sets the owner type.
    ClassOptions& OwnedBy(short type) {
        owner = type;
        return *this;
    }
    /// Sets the expected count.
    ClassOptions& Expecting(long count) {
        expectedCount = count;
        return *this;
    }
    /// Sets the first flag.
    ClassOptions& First(bool on = true) {
        first = on;
        return *this;
    }
    /// Sets the second flag.
    ClassOptions& Second(bool on = true) {
        second = on;
        return *this;
    }
};

/// Registers T (a class with c_sType, constructible by FactoryOf<T>) under `name`; the registry owns
/// the factory from then on. False, and nothing registered, when the code or the name is taken.
template <class T>
bool RegisterClass(const char* name, const ClassOptions& options = {}) {
    auto* factory = new FactoryOf<T>(T::c_sType, name, options.supertype, options.owner,
                                     options.expectedCount, 0, options.first, options.second);
    if (factory->IsRegistered())
        return true;
    delete factory;  // a refused factory stays with its maker
    return false;
}

// ---------------------------------------------------------------------------------------------------
// Creation, reads and writes

/// A new T (of type T::c_sType) under `owner`, null for a root. Null, as CreateItem answers, when the
/// type cannot be made there (after message 601) or the object made is no T (it is expunged again); a
/// factory that refuses the owner by exception (EXUnexpected) passes it on.
template <class T>
T* Create(MCObject* owner) {
    auto* object = static_cast<MCObject*>(MCFactoryRegistry::CreateItem(T::c_sType, owner, nullptr, nullptr));
    if (object == nullptr)
        return nullptr;
    if (T* typed = dynamic_cast<T*>(object))
        return typed;
    object->Expunge(true);
    return nullptr;
}

namespace detail {
// The value class a host value is stored as.
template <class T, class = void>
struct Stored {};
template <class T>
struct Stored<T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>>> {
    using type = long;
};
template <>
struct Stored<double> {
    using type = double;
};
template <>
struct Stored<float> {
    using type = float;
};
template <>
struct Stored<ZVTString> {
    using type = ZVTString;
};
template <>
struct Stored<const char*> {
    using type = ZVTString;
};
template <>
struct Stored<char*> {
    using type = ZVTString;
};
template <>
struct Stored<std::nullptr_t> {
    using type = MCObject*;
};
template <class T>
struct Stored<T*, std::enable_if_t<std::is_base_of_v<MCObject, T>>> {
    using type = MCObject*;
};

template <class T>
using StoredT = typename Stored<std::decay_t<T>>::type;

// A reference property that holds stored ids instead of targets reads as absent.
inline bool IsUnboundReference(const MCObject& object, short code) {
    const MCProperty* property = object.FindProperty(code, false);
    if (auto* single = dynamic_cast<const MCSRef*>(property))
        return !single->IsBound();
    if (auto* list = dynamic_cast<const MCVRef*>(property))
        return !list->IsBound();
    return false;
}
}  // namespace detail

/// The single value of the property `code` of `object`: T is long, double, float, ZVTString or MCObject*
/// (a reference's target). Empty for a null object, an absent, nulled or unbound property, or one of
/// another value class. A calculated property is calculated first.
template <class T>
std::optional<T> Get(const MCObject* object, short code) {
    static_assert(std::is_same_v<detail::StoredT<T>, T>,
                  "Get reads long, double, float, ZVTString or MCObject*");
    if (object == nullptr)
        return std::nullopt;
    if constexpr (std::is_same_v<T, MCObject*>) {
        MCSRefRawAccessor accessor;
        if (detail::IsUnboundReference(*object, code) || !object->GetProperty(code, accessor))
            return std::nullopt;
        return accessor.GetValue();
    } else {
        MCSPropertyRawAccessorT<T> accessor;
        if (!object->GetProperty(code, accessor))
            return std::nullopt;
        return accessor.GetValue();
    }
}

/// What became of an edit.
class Edit {
public:
    enum class Outcome {
        applied,          ///< the value is set (or already was)
        refused,          ///< a rule refused the edit; nothing changed
        objectDestroyed,  ///< a rule destroyed the object during the edit; the pointer is dangling
        invalid           ///< no object, or the property cannot hold a value of this class
    };
    explicit Edit(Outcome outcome) : m_eOutcome(outcome) {}
    /// The outcome.
    Outcome GetOutcome() const { return m_eOutcome; }
    /// True when the value was set.
    explicit operator bool() const { return m_eOutcome == Outcome::applied; }

private:
    Outcome m_eOutcome;
};

/// Sets the single property `code` of `object` to `value` through an active accessor (rules and
/// subscribers run), making the property on first use. An integer is stored as long, a string as
/// ZVTString, an object pointer as a reference's target.
template <class T>
Edit Set(MCObject* object, short code, const T& value) {
    using Value = detail::StoredT<T>;
    if (object == nullptr)
        return Edit(Edit::Outcome::invalid);
    std::conditional_t<std::is_same_v<Value, MCObject*>, MCSRefAccessor, MCSPropertyAccessorT<Value>>
        accessor(static_cast<Value>(value));
    const bool set = object->SetProperty(code, accessor, MCPropertyAccessor::accessReplace);
    if (accessor.GetObjectDestroyed())
        return Edit(Edit::Outcome::objectDestroyed);
    if (set)
        return Edit(Edit::Outcome::applied);
    // A refused edit leaves a property of the right class behind; anything else never was one.
    const MCProperty* property = object->FindProperty(code, true);
    if (dynamic_cast<const MCSPropertyT<Value>*>(property) == nullptr)
        return Edit(Edit::Outcome::invalid);
    return Edit(Edit::Outcome::refused);
}

// ---------------------------------------------------------------------------------------------------
// Subscriptions

/// A subscription that ends when its handle goes: move-only, it owns the subscriber and unsubscribes it
/// from the object unless the object is gone already. An empty handle (default, moved from) does
/// nothing. The callback may end its own subscription only as the last thing it does.
class Subscription {
public:
    Subscription() = default;
    Subscription(Subscription&& other) noexcept { *this = std::move(other); }
    Subscription& operator=(Subscription&& other) noexcept {
        if (this != &other) {
            Reset();
            m_pxListener = std::move(other.m_pxListener);
            m_pxSubject = std::exchange(other.m_pxSubject, nullptr);
            m_lSubjectId = std::exchange(other.m_lSubjectId, 0);
            m_uType = other.m_uType;
        }
        return *this;
    }
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    ~Subscription() { Reset(); }

    /// Unsubscribes now; the handle is empty afterwards.
    void Reset() {
        if (m_pxListener && MCObject::ResolveId(m_lSubjectId) == m_pxSubject)
            m_pxSubject->RemoveSubscriber(m_pxListener.get(), m_uType);
        m_pxListener.reset();
        m_pxSubject = nullptr;
    }
    /// True while the handle holds a subscription.
    bool IsActive() const { return m_pxListener != nullptr; }

private:
    friend Subscription Observe(MCObject*, std::function<void(MCEvent&)>, unsigned int);

    class Listener : public MCSubscriber {
    public:
        explicit Listener(std::function<void(MCEvent&)> callback) : m_xCallback(std::move(callback)) {}
        void Notify(MCEvent& event) override { m_xCallback(event); }

    private:
        std::function<void(MCEvent&)> m_xCallback;
    };

    std::unique_ptr<Listener> m_pxListener;
    // The subject is checked through its id, which is never reused, before it is touched again.
    MCObject* m_pxSubject = nullptr;
    long m_lSubjectId = 0;
    unsigned int m_uType = 0;
};

/// Subscribes `callback` to `object` with the subscriber types `subscriberType`; the returned handle
/// owns it. An empty handle for a null object or an empty callback. The object must live in the global
/// id space, which is where the handle looks for it before unsubscribing.
inline Subscription Observe(MCObject* object, std::function<void(MCEvent&)> callback,
                            unsigned int subscriberType = MCEvent::subscriberObserver) {
    Subscription subscription;
    if (object == nullptr || !callback)
        return subscription;
    subscription.m_pxListener = std::make_unique<Subscription::Listener>(std::move(callback));
    subscription.m_pxSubject = object;
    subscription.m_lSubjectId = object->GetId();
    subscription.m_uType = subscriberType;
    object->AddSubscriber(subscription.m_pxListener.get(), subscriberType);
    return subscription;
}

// ---------------------------------------------------------------------------------------------------
// Ranges

/// The ownees of an object, oldest first, walked live: each step reads the next sibling before the body
/// runs, so the body may expunge the current ownee but not the next one. Empty for a null object.
class Ownees {
public:
    explicit Ownees(const MCObject* object) : m_pxFirst(object ? object->GetFirstOwnee() : nullptr) {}

    /// Steps through the sibling ring.
    class iterator {
    public:
        explicit iterator(MCObject* current) : m_pxCurrent(current), m_pxNext(NextOf(current)) {}
        MCObject* operator*() const { return m_pxCurrent; }
        iterator& operator++() {
            m_pxCurrent = m_pxNext;
            m_pxNext = NextOf(m_pxCurrent);
            return *this;
        }
        bool operator!=(const iterator& other) const { return m_pxCurrent != other.m_pxCurrent; }
        bool operator==(const iterator& other) const { return m_pxCurrent == other.m_pxCurrent; }

    private:
        static MCObject* NextOf(MCObject* object) { return object ? object->GetNextSibling() : nullptr; }
        MCObject* m_pxCurrent;
        MCObject* m_pxNext;
    };

    iterator begin() const { return iterator(m_pxFirst); }
    iterator end() const { return iterator(nullptr); }

private:
    MCObject* m_pxFirst;
};

/// The values of the list property `code` of `object` (T is long, float or ZVTString), copied when the
/// range is made: later edits do not show. Empty for a null object or an absent, nulled or other-class
/// property.
template <class T>
class Values {
public:
    Values(const MCObject* object, short code) {
        MCVPropertyRawAccessorT<T> accessor;
        if (object != nullptr && object->GetProperty(code, accessor)) {
            const ZVTSList<T>* values = accessor.GetList();
            m_xValues.reserve(values->Entries());
            for (size_t i = 0; i < values->Entries(); ++i)
                m_xValues.push_back(values->At(i));
        }
    }
    typename std::vector<T>::const_iterator begin() const { return m_xValues.begin(); }
    typename std::vector<T>::const_iterator end() const { return m_xValues.end(); }
    /// How many values were copied.
    size_t size() const { return m_xValues.size(); }

private:
    std::vector<T> m_xValues;
};

/// The targets of the reference list `code` of `object`, in list order, copied when the range is made:
/// a target expunged afterwards leaves a dangling pointer in the copy. Empty for a null object or an
/// absent, nulled, unbound or other-class property.
class Targets {
public:
    Targets(const MCObject* object, short code) {
        MCVRefRawAccessor accessor;
        if (object == nullptr || detail::IsUnboundReference(*object, code) ||
            !object->GetProperty(code, accessor))
            return;
        const ZVTSList<MCObject*>* targets = accessor.GetList();
        for (size_t i = 0; i < targets->Entries(); ++i)
            m_xTargets.push_back(targets->At(i));
    }
    std::vector<MCObject*>::const_iterator begin() const { return m_xTargets.begin(); }
    std::vector<MCObject*>::const_iterator end() const { return m_xTargets.end(); }
    /// How many targets were copied.
    size_t size() const { return m_xTargets.size(); }

private:
    std::vector<MCObject*> m_xTargets;
};

}  // namespace mc

#endif
