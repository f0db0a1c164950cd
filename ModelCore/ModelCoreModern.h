#ifndef MODELCOREMODERN_H
#define MODELCOREMODERN_H

// A thin layer for hosts over the plain API: scope objects, named registration, typed reads and writes,
// subscriptions and rules that end themselves, range-for, copy and paste through byte buffers, and save
// and restore that answer one result. Header-only and opt-in; everything here is made of public calls, so
// the two styles mix freely on the same model.

#include <functional>
#include <istream>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
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
class EditResult {
public:
    enum class Outcome {
        applied,          ///< the value is set (or already was)
        refused,          ///< a rule refused the edit; nothing changed
        objectDestroyed,  ///< a rule destroyed the object during the edit; the pointer is dangling
        invalid           ///< no object, or the property cannot hold a value of this class
    };
    explicit EditResult(Outcome outcome) : m_eOutcome(outcome) {}
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
EditResult Set(MCObject* object, short code, const T& value) {
    using Value = detail::StoredT<T>;
    if (object == nullptr)
        return EditResult(EditResult::Outcome::invalid);
    std::conditional_t<std::is_same_v<Value, MCObject*>, MCSRefAccessor, MCSPropertyAccessorT<Value>>
        accessor(static_cast<Value>(value));
    const bool set = object->SetProperty(code, accessor, MCPropertyAccessor::accessReplace);
    if (accessor.GetObjectDestroyed())
        return EditResult(EditResult::Outcome::objectDestroyed);
    if (set)
        return EditResult(EditResult::Outcome::applied);
    // A refused edit leaves a property of the right class behind; anything else never was one.
    const MCProperty* property = object->FindProperty(code, true);
    if (dynamic_cast<const MCSPropertyT<Value>*>(property) == nullptr)
        return EditResult(EditResult::Outcome::invalid);
    return EditResult(EditResult::Outcome::refused);
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
// Rules

namespace detail {
// The registries die with MdlCore::Terminate; the object rule registry stays gone afterwards (and the
// property one would come back on GetInstance), so its absence tells a handle the core has ended.
inline bool CoreAlive() {
    return MdlCore::IsInitialized() && MCObjectSemReg::GetInstance() != nullptr;
}

// What a Rule handle holds: a registered rule that knows how to leave its registry.
struct RuleBody {
    virtual ~RuleBody() = default;
    virtual void Leave() = 0;
};

class EditRule final : public MCPropertySemantic, public RuleBody {
public:
    using Callback = std::function<result(mode, MCObject*, MCProperty*, MCPropertySemanticContext*)>;
    EditRule(Callback callback, unsigned long interests)
        : m_xCallback(std::move(callback)), m_nInterests(interests) {}
    result Fire(mode when, MCObject* object, MCProperty* property,
                MCPropertySemanticContext* context) override {
        return (when & m_nInterests) == 0 ? resultContinue : m_xCallback(when, object, property, context);
    }
    unsigned long GetInterests() const override { return m_nInterests; }
    void Leave() override {
        if (CoreAlive())
            MCPropertySemanticRegistry::GetInstance()->Deregister(this);
    }

private:
    Callback m_xCallback;
    unsigned long m_nInterests;
};

class ObjectRule final : public MCObjectSem, public RuleBody {
public:
    using Callback = std::function<result(mode, MCObject*, MCObjectSemContext*)>;
    ObjectRule(Callback callback, unsigned long interests)
        : m_xCallback(std::move(callback)), m_nInterests(interests) {}
    // A handler's mask carries its ancestors' interests, so modes not asked for arrive too.
    result Fire(mode when, MCObject* object, MCObjectSemContext* context) override {
        return (when & m_nInterests) == 0 ? resultContinue : m_xCallback(when, object, context);
    }
    unsigned long GetInterests() const override { return m_nInterests; }
    void Leave() override {
        if (CoreAlive())
            MCObjectSemReg::GetInstance()->Deregister(this);
    }

private:
    Callback m_xCallback;
    unsigned long m_nInterests;
};
}  // namespace detail

/// A registered rule that leaves its registry when the handle goes: move-only, it owns the rule object
/// and frees it after deregistering. An empty handle (default, moved from) does nothing. A handle that
/// outlives MdlCore::Terminate only frees its rule, as the registries are gone. A rule must not end its
/// own handle while it fires.
class Rule {
public:
    Rule() = default;
    Rule(Rule&&) noexcept = default;
    Rule& operator=(Rule&& other) noexcept {
        if (this != &other) {
            Reset();
            m_pxBody = std::move(other.m_pxBody);
        }
        return *this;
    }
    Rule(const Rule&) = delete;
    Rule& operator=(const Rule&) = delete;
    ~Rule() { Reset(); }

    /// Deregisters and frees the rule now; the handle is empty afterwards.
    void Reset() {
        if (m_pxBody)
            m_pxBody->Leave();
        m_pxBody.reset();
    }
    /// True while the handle holds a rule.
    bool IsActive() const { return m_pxBody != nullptr; }

private:
    friend Rule OnEdit(short, short, detail::EditRule::Callback, unsigned long);
    friend Rule OnObject(short, detail::ObjectRule::Callback, unsigned long);
    explicit Rule(std::unique_ptr<detail::RuleBody> body) : m_pxBody(std::move(body)) {}

    std::unique_ptr<detail::RuleBody> m_pxBody;
};

/// The single value an edit rule's firing is about to write (PreEdit) or wrote (PostEdit): T is long,
/// double, float, ZVTString or MCObject* (a reference's target). Empty when the firing comes from no
/// accessor (a calculation, say) or from one of another value class.
template <class T>
std::optional<T> Incoming(const MCPropertySemanticContext* context) {
    static_assert(std::is_same_v<detail::StoredT<T>, T>,
                  "Incoming reads long, double, float, ZVTString or MCObject*");
    const MCActiveAccessor* active = context ? context->GetActiveAccessor() : nullptr;
    auto* accessor = active ? dynamic_cast<MCSPropertyRawAccessorT<T>*>(active->m_pxAccessor) : nullptr;
    if (accessor == nullptr)
        return std::nullopt;
    return accessor->GetValue();
}

/// The values a list edit carries (T is long, float, ZVTString or MCObject*) and its access flags
/// (accessAdd, accessRemove, accessReplace): the list stays the accessor's and lives only while the rule
/// runs. A null list and flags 0 when the firing comes from no accessor or one of another value class.
template <class T>
std::pair<const ZVTSList<T>*, long> IncomingList(const MCPropertySemanticContext* context) {
    const MCActiveAccessor* active = context ? context->GetActiveAccessor() : nullptr;
    auto* accessor = active ? dynamic_cast<MCVPropertyRawAccessorT<T>*>(active->m_pxAccessor) : nullptr;
    if (accessor == nullptr)
        return {nullptr, 0};
    return {accessor->GetList(), active->m_lFlags};
}

/// Runs `rule` for the property `propertyType` of objects of `objectType` (and the types below it) in the
/// modes of `interests`; the rule's answer is the firing's. An empty handle for an empty callback or no
/// interests. The object type should be registered first, so that its rules chain to its supertype's;
/// EXGenericObject for the generic object type, with nothing registered.
inline Rule OnEdit(short objectType, short propertyType, detail::EditRule::Callback rule,
                   unsigned long interests = MCPropertySemantic::PreEdit) {
    if (!rule || interests == 0)
        return Rule();
    auto body = std::make_unique<detail::EditRule>(std::move(rule), interests);
    MCFactoryContext context;
    MCPropertySemanticRegistry::Register(objectType, &context, propertyType, body.get(), false, false);
    return Rule(std::move(body));
}

/// Runs `rule` for objects of `objectType` (and the types below it) in the modes of `interests`, which
/// it alone sees; resultFailed stops the firing. An empty handle for an empty callback or no interests.
inline Rule OnObject(short objectType, detail::ObjectRule::Callback rule,
                     unsigned long interests = MCObjectSem::PostCreation) {
    if (!rule || interests == 0)
        return Rule();
    auto body = std::make_unique<detail::ObjectRule>(std::move(rule), interests);
    MCFactoryContext context;
    MCObjectSemReg::Register(objectType, &context, body.get(), false);
    return Rule(std::move(body));
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

/// The properties of an object in slot order, walked live like MCPropertySetIter: the body may set or
/// null any property, the current one included, but must not expunge the object. A nulled property
/// leaves the set; one made during the walk fills the lowest free slot and is visited only when that
/// lies ahead of the cursor. The id property comes first. Empty for a null object.
class Properties {
public:
    explicit Properties(const MCObject* object) : m_pxSet(object ? &object->GetPropertySet() : nullptr) {}

    /// Steps through the used slots.
    class iterator {
    public:
        explicit iterator(const MCPropertySet* set) {
            if (set != nullptr) {
                m_xCursor.emplace(*set);
                Step();
            }
        }
        MCProperty* operator*() const { return m_xCursor ? m_xCursor->GetValue() : nullptr; }
        iterator& operator++() {
            Step();
            return *this;
        }
        // Only the end is ever compared against.
        bool operator!=(const iterator& other) const { return AtEnd() != other.AtEnd(); }
        bool operator==(const iterator& other) const { return AtEnd() == other.AtEnd(); }

    private:
        bool AtEnd() const { return !m_xCursor; }
        void Step() {
            // Slot 0 is taken as used unseen; a null there is skipped like any freed slot.
            while (m_xCursor) {
                if (!++*m_xCursor)
                    m_xCursor.reset();
                else if (m_xCursor->GetValue() != nullptr)
                    return;
            }
        }
        std::optional<MCPropertySetIter> m_xCursor;
    };

    iterator begin() const { return iterator(m_pxSet); }
    iterator end() const { return iterator(nullptr); }

private:
    const MCPropertySet* m_pxSet;
};

// ---------------------------------------------------------------------------------------------------
// Copy and paste

/// The clip buffer of `objects` and what they take along, copied from the tree whose copy source is
/// `source`: bytes a host may keep, write out or paste any number of times. Empty for no objects, and when
/// a value did not fit its stored width. Throws what the copying MCClipList throws (EXUnexpected without a
/// persistence root at or above `source` or without an environment); the converter stays the caller's.
inline std::vector<char> Copy(const std::vector<MCObject*>& objects, MCObject& source,
                              MCClipList::mode how = MCClipList::modeCopy,
                              MCClipIdConverter* converter = nullptr) {
    if (objects.empty())
        return {};
    ZVTSList<MCObject*> selection;
    for (MCObject* object : objects)
        selection.Append(object);
    MCClipList copy(selection, source, how, converter);
    std::vector<char> buffer(static_cast<size_t>(copy.GetBufferSize()));
    if (!buffer.empty())
        copy.CopyBuffer(buffer.data());
    return buffer;
}

/// Pastes `buffer` under `target` alone and answers the objects placed there (and, with a converter, the
/// ones merged into), which belong to their owners. The bytes are read, not kept. A damaged buffer
/// pastes what stands whole before the damage; a factory, the reader or a duplicate id throws as the
/// paste MCClipList does, and then nothing of the paste is left.
inline std::vector<MCObject*> Paste(const std::vector<char>& buffer, MCObject& target,
                                    MCClipIdConverter* converter = nullptr) {
    ZVTSList<MCObject*> targets;
    targets.Append(&target);
    ZVTOrderedVectorT<long> ids;
    // The paste copies the bytes before it reads them and never writes them.
    void* bytes = const_cast<char*>(buffer.data());
    MCClipList paste(targets, target, bytes, static_cast<int>(buffer.size()), &ids, converter);
    std::vector<MCObject*> pasted;
    for (size_t i = 0; i < ids.Length(); ++i) {
        if (MCObject* object = MCObject::ResolveId(ids[i]))
            pasted.push_back(object);
    }
    return pasted;
}

// ---------------------------------------------------------------------------------------------------
// Save and restore

namespace detail {
// What an exception of the kinds a save or restore documents says; the caller catches the rest.
template <class Work>
std::string Failure(Work&& work) {
    try {
        work();
    } catch (const MCPersExObjectCreation& failure) {
        return "cannot create an object of type " + std::to_string(failure.GetObjectType());
    } catch (const MCPersExBadTree&) {
        return "a null object in the tree";
    } catch (const EXBase& failure) {
        return failure.what();
    }
    return std::string();
}
}  // namespace detail

/// What became of a save: the controller's outcome, and the text of the exception that ended it, if one
/// did. True when the model was written whole.
struct SaveResult {
    MCPersController::result outcome = MCPersController::resultOk;
    std::string message;   ///< empty unless an exception ended the save
    bool written = false;  ///< the outcome was resultOk, nothing threw and the stream took every byte
    explicit operator bool() const { return written; }
};

/// Writes `root`'s tree under the header given, or the running product's (HUBProductIdent) without one.
/// A save that cannot start or ends in an exception of the documented kinds (no persistence root or
/// environment, no product identity, a bad tree) reports it in the result; what was written stays
/// written. A null root writes nothing.
inline SaveResult Save(MCObject* root, std::ostream& out, std::optional<MCPersHeader> header = std::nullopt) {
    SaveResult saved;
    saved.outcome = MCPersController::resultHeadNotWritten;
    if (root == nullptr || out.rdbuf() == nullptr) {
        saved.message = "nothing to save or nowhere to write";
        return saved;
    }
    saved.message = detail::Failure([&] {
        MCStream stream(*out.rdbuf(), ZVTStream::binary);
        if (!header)
            header.emplace();
        MCPersController controller;
        saved.outcome = controller.SaveTo(stream, root, *header);
        stream.flush();
        saved.written = saved.outcome == MCPersController::resultOk && stream.good();
    });
    saved.written = saved.written && saved.message.empty() && out.flush().good();
    return saved;
}

/// Takes down a model: `root` with its whole subtree, itemUndeletable cleared first. The registry keeps a
/// root among the holders of its user-defined properties until told (and a later root at the same
/// address would hold them too), so the root leaves them first; plain `Expunge(true)` does not.
inline void ExpungeModel(MCObject* root) {
    MCFactoryRegistry::RemoveUDPs(root);
    // A restored root may carry itemUndeletable, which only its owner's end overrides.
    root->SetFlag(MCItem::itemUndeletable, false);
    root->Expunge(true);
}

/// Takes down every object of `created` (each recorded with its id when it was made) that is still alive
/// and has no owner, except `keep`, as ExpungeModel does, and forgets them all; answers how many went.
/// After a failed restore or paste that is whatever of it was left.
inline size_t ExpungeStrays(std::vector<std::pair<MCObject*, long>>& created, MCObject* keep) {
    // Ids are never reused, so an object that still resolves under its id is the one recorded.
    std::vector<std::pair<MCObject*, long>> strays;
    for (const auto& [object, id] : created) {
        if (object != keep && MCObject::ResolveId(id) == object && !object->GetOwner(0, MCItem::rttiExact))
            strays.emplace_back(object, id);
    }
    size_t gone = 0;
    for (const auto& [object, id] : strays) {
        // An earlier stray may have taken this one along through its references.
        if (MCObject::ResolveId(id) == object) {
            ExpungeModel(object);
            ++gone;
        }
    }
    created.clear();
    return gone;
}

/// Notes every object made while it lives (through CreateItem, a restore or a paste), with its id, so
/// that what a failed or partial load left behind can be taken down without touching objects that are
/// already gone. Hooks itself into the registry on construction and out on destruction; it owns
/// nothing it notes. Not copyable: the registry holds its address.
class CreationLog : public MCCreationHook {
public:
    CreationLog() { MCFactoryRegistry::HookCreateItem(*this, true); }
    ~CreationLog() override { MCFactoryRegistry::HookCreateItem(*this, false); }
    CreationLog(const CreationLog&) = delete;
    CreationLog& operator=(const CreationLog&) = delete;

    /// Notes `object` and its id; the registry calls it.
    void ItemCreated(MCObject* object) override { m_xCreated.emplace_back(object, object->GetId()); }
    /// Every object noted so far, with its id, in creation order; entries may have died since.
    const std::vector<std::pair<MCObject*, long>>& Created() const { return m_xCreated; }
    /// Takes the notes away (the log starts empty again), for a result that outlives the log.
    std::vector<std::pair<MCObject*, long>> Release() { return std::exchange(m_xCreated, {}); }
    /// Expunges every noted object that is still alive and has no owner, except `keep`, as
    /// mc::ExpungeStrays does, and forgets them all; answers how many went.
    size_t ExpungeStrays(MCObject* keep) { return mc::ExpungeStrays(m_xCreated, keep); }

private:
    std::vector<std::pair<MCObject*, long>> m_xCreated;
};

/// What became of a restore: the controller's outcome, the root (null unless resultOk), the head the file
/// gave, the text of the exception that ended it, if one did, and every object it made, owned by no one
/// but the model. Move-only; the recorded objects are checked by id before they are touched, so it may
/// outlive them, but not MdlCore::Terminate.
class RestoreResult {
public:
    MCPersController::result outcome = MCPersController::resultOk;
    MCObject* root = nullptr;
    MCPersHeader header;  ///< the file's head as read (product, company, format); the limits if none was
    std::string message;  ///< empty unless an exception ended the restore

    RestoreResult() = default;
    RestoreResult(RestoreResult&&) = default;
    RestoreResult& operator=(RestoreResult&&) = default;
    RestoreResult(const RestoreResult&) = delete;
    RestoreResult& operator=(const RestoreResult&) = delete;

    /// True when the restore gave a root and nothing threw.
    explicit operator bool() const {
        return outcome == MCPersController::resultOk && root && message.empty();
    }
    /// Every object the restore made, with its id, in creation order; entries may have died since.
    const std::vector<std::pair<MCObject*, long>>& Created() const { return m_xCreated; }
    /// Expunges every object the restore made that is still alive and has no owner, except the root,
    /// clearing itemUndeletable first, and forgets them all; answers how many went. After a failed
    /// restore that is the whole partial tree.
    size_t ExpungeStrays() { return mc::ExpungeStrays(m_xCreated, root); }
    /// As ExpungeStrays, but the root goes too and the result forgets it: the whole restored model is
    /// taken down, for a host that only wanted to look at it.
    size_t ExpungeAll() {
        root = nullptr;
        return mc::ExpungeStrays(m_xCreated, nullptr);
    }

private:
    friend RestoreResult Restore(MCStream&, std::optional<MCPersHeader>);
    std::vector<std::pair<MCObject*, long>> m_xCreated;
};

/// Reads a model from `stream`, accepting files up to the header given, or the running product's without
/// one. Every outcome comes back in the result, also a head that cannot be read or an object that cannot
/// be made: an exception of the documented kinds gives resultUnknownToken with its text. The objects made
/// are recorded either way, for ExpungeStrays. A truncated model restores what it holds. The stream stays
/// the caller's; its id space maps the stored ids to the restored objects until it goes.
inline RestoreResult Restore(MCStream& stream, std::optional<MCPersHeader> limits = std::nullopt) {
    RestoreResult restored;
    CreationLog log;
    if (limits)
        restored.header = *limits;
    restored.message = detail::Failure([&] {
        MCPersController controller;
        MCObject* root = nullptr;
        restored.outcome = controller.RestoreFrom(stream, root, restored.header);
        if (restored.outcome == MCPersController::resultOk)
            restored.root = root;
    });
    if (!restored.message.empty())
        restored.outcome = MCPersController::resultUnknownToken;
    restored.m_xCreated = log.Release();
    return restored;
}

/// Restore from a standard stream, which stays the caller's; the restore's own id space goes with it.
inline RestoreResult Restore(std::istream& in, std::optional<MCPersHeader> limits = std::nullopt) {
    MCStream stream(in, ZVTStream::binary);
    return Restore(stream, std::move(limits));
}

}  // namespace mc

#endif
