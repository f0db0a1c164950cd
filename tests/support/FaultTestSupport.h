#ifndef FAULTTESTSUPPORT_H
#define FAULTTESTSUPPORT_H

// Failures on demand and the checks that follow them: a model stream whose Nth read or write fails, a
// countdown of allocations that makes the Nth fail, a rule and an observer that throw at their Kth call,
// a text dump of a tree to compare before and after, and the invariants a model must keep whatever
// failed.

#include <cstdlib>
#include <functional>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ModelCore/ModelCore.h"
#include "ModelCore/ZVFWMC/MCNameSpace.h"

/// Fires once, at the `k`th call of Hit after Arm(k); Arm(0) and Disarm stop it.
struct Countdown {
    int m_nAt = 0;
    int m_nCalls = 0;
    bool m_bFired = false;

    void Arm(int k) { m_nAt = k, m_nCalls = 0, m_bFired = false; }
    /// Whether it fired; disarms.
    bool Disarm() { return m_nAt = 0, m_bFired; }
    bool Hit() { return m_nAt != 0 && ++m_nCalls == m_nAt && (m_bFired = true); }
};

/// Which operations of a FaultyStream count towards its fault.
enum class FaultKind { read, write };

/// An MCStream whose Nth read (operator>>, seekg, tellg) or write (operator<<, seekp, tellp, flush) after
/// Arm fails once, the way a disk does: nothing moves and the stream goes bad until someone clears it.
class FaultyStream : public MCStream {
public:
    /// Works on `stream`, which must outlive this one; unarmed, it fails nothing.
    explicit FaultyStream(std::iostream& stream) : MCStream(stream, ZVTStream::binary) {}

    /// Makes the `failAt`th operation of `kind` from now fail; 0 disarms.
    void Arm(FaultKind kind, int failAt) { m_eKind = kind, m_xCountdown.Arm(failAt); }
    /// Whether the armed operation came; disarms.
    bool Disarm() { return m_xCountdown.Disarm(); }

    void seekg(long position) override { Fails(FaultKind::read) ? void() : MCStream::seekg(position); }
    void seekp(long position) override { Fails(FaultKind::write) ? void() : MCStream::seekp(position); }
    long tellg() override { return Fails(FaultKind::read) ? -1 : MCStream::tellg(); }
    long tellp() override { return Fails(FaultKind::write) ? -1 : MCStream::tellp(); }
    void flush() override { Fails(FaultKind::write) ? void() : MCStream::flush(); }

#define FAULT_IO(W, R)                                                        \
    ZVTStream& operator<<(W value) override {                                 \
        return Fails(FaultKind::write) ? *this : MCStream::operator<<(value); \
    }                                                                         \
    ZVTStream& operator>>(R& value) override {                                \
        return Fails(FaultKind::read) ? *this : MCStream::operator>>(value);  \
    }
    FAULT_IO(ZVTBoolean, ZVTBoolean)
    FAULT_IO(const ZVTString&, ZVTString)
    FAULT_IO(double, double)
    FAULT_IO(float, float)
    FAULT_IO(unsigned long, unsigned long)
    FAULT_IO(long, long)
    FAULT_IO(unsigned short, unsigned short)
    FAULT_IO(short, short)
    FAULT_IO(unsigned int, unsigned int)
    FAULT_IO(int, int)
    FAULT_IO(unsigned char, unsigned char)
    FAULT_IO(char, char)
#undef FAULT_IO
    ZVTStream& operator<<(const char* value) override {
        return Fails(FaultKind::write) ? *this : MCStream::operator<<(value);
    }

private:
    bool Fails(FaultKind kind) {
        if (kind != m_eKind || !m_xCountdown.Hit())
            return false;
        clear(std::ios::badbit | std::ios::failbit | (eof() ? std::ios::eofbit : 0));
        return true;
    }

    FaultKind m_eKind = FaultKind::read;
    Countdown m_xCountdown;
};

/// The Nth allocation through operator new after Arm throws std::bad_alloc, once; the binary that
/// includes this header replaces the global operator new and delete for it.
inline Countdown c_xAllocationFault;

/// Throws at the `k`th call of Tick after Arm, once: EXUnexpected, or with `foreign` a std::runtime_error,
/// which is no EXBase.
struct ThrowCountdown : Countdown {
    bool m_bForeign = false;

    void Arm(int k, bool foreign) { Countdown::Arm(k), m_bForeign = foreign; }
    void Tick() {
        if (Hit())
            m_bForeign ? throw std::runtime_error("host") : throw EXUnexpected("host", "rule");
    }
};

/// An object rule and a property rule (every mode of each) and an observer that tick their countdown
/// before they answer, then run their body.
class ThrowingObjectRule : public MCObjectSem {
public:
    result Fire(mode, MCObject*, MCObjectSemContext*) override {
        m_xCountdown.Tick();
        return resultContinue;
    }
    unsigned long GetInterests() const override {
        return PostCreation | PreDestructon | CalculateData | PostPaste;
    }
    ThrowCountdown m_xCountdown;
};

class ThrowingPropertyRule : public MCPropertySemantic {
public:
    ~ThrowingPropertyRule() { MCPropertySemanticRegistry::GetInstance()->Deregister(this); }
    result Fire(mode nMode, MCObject* object, MCProperty* property, MCPropertySemanticContext*) override {
        m_xCountdown.Tick();
        m_xBody(nMode, object, property);
        return resultContinue;
    }
    unsigned long GetInterests() const override { return PreEdit | PostEdit | PostCalculateData | PostPaste; }
    ThrowCountdown m_xCountdown;
    std::function<void(mode, MCObject*, MCProperty*)> m_xBody = [](mode, MCObject*, MCProperty*) {};
};

class ThrowingObserver : public MCSubscriber {
public:
    void Notify(MCEvent& event) override {
        m_xCountdown.Tick();
        m_xBody(event);
    }
    ThrowCountdown m_xCountdown;
    std::function<void(MCEvent&)> m_xBody = [](MCEvent&) {};
};

/// The failures the running test has recorded so far, so that a loop stops at its own first one.
inline int FailureCount() {
    return ::testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
}

namespace fault_detail {

inline void Subtree(MCObject* root, std::vector<MCObject*>& out) {
    std::vector<MCObject*> stack{root};
    while (!stack.empty()) {
        MCObject* object = stack.back();
        stack.pop_back();
        out.push_back(object);
        for (MCObject* ownee = object->GetFirstOwnee(); ownee; ownee = ownee->GetNextSibling())
            stack.push_back(ownee);
    }
}

// The targets of a reference property, null for an entry that is not there; false when it is no
// reference, and `bound` false for one that still holds stored ids.
inline bool Targets(MCProperty* property, std::vector<MCObject*>& targets, bool& bound) {
    bound = true;
    if (auto* single = dynamic_cast<MCSRef*>(property)) {
        bound = single->IsBound();
        if (bound)
            targets.push_back(single->GetValue());
        return true;
    }
    if (auto* list = dynamic_cast<MCVRef*>(property)) {
        bound = list->IsBound();
        for (size_t i = 0; bound && i < list->GetValue().Entries(); ++i)
            targets.push_back(list->GetValue().At(i));
        return true;
    }
    return false;
}

}  // namespace fault_detail

/// The subtree under `object` in owner order, one object a line: depth, type, id, then each property as
/// type=value (references as target ids, "~" for nulled) and the number of subscribers; what a failed
/// operation must leave exactly as it was.
inline std::string TreeDump(MCObject* object, int depth = 0) {
    std::string out = std::string(static_cast<size_t>(depth), ' ') + std::to_string(object->GetType()) + "#" +
                      std::to_string(object->GetId());
    for (MCPropertySetIter properties(object->GetPropertySet()); ++properties;) {
        MCProperty* property = properties.GetValue();
        if (!property)
            continue;
        out += " " + std::to_string(property->GetType()) + "=";
        std::vector<MCObject*> targets;
        bool bound = true;
        ZVTString text;
        if (property->GetFlag(MCItem::itemNulled))
            out += "~";
        else if (fault_detail::Targets(property, targets, bound)) {
            out += bound ? "" : "?";
            for (MCObject* target : targets)
                out += "@" + (target ? std::to_string(target->GetId()) : std::string("0"));
        } else
            out += object->GetPropertyString(property->GetType(), text) ? text.str() : "?";
    }
    out += " s" + std::to_string(MCSubscriberListIter(object).GetCount()) + "\n";
    for (MCObject* ownee = object->GetFirstOwnee(); ownee; ownee = ownee->GetNextSibling())
        out += TreeDump(ownee, depth + 1);
    return out;
}

/// What a model is checked against after any failure.
struct ModelScope {
    /// The roots of every tree the test keeps; objects outside them count as strays.
    std::vector<MCObject*> m_xRoots;
    /// Object types whose live tables must hold only objects of these trees.
    std::vector<short> m_xTypes;
    /// Subscribers that are no model object (the test's observers).
    std::set<const MCSubscriber*> m_xObservers;
    /// Names that each name space is asked for.
    std::vector<std::string> m_xNames;
};

/// What is broken in the model, one short phrase per fault, empty when it is sound: every object of the
/// trees resolves by its id and is not dying, no live object of the listed types stands outside them,
/// every reference is null or bound to a live object, every subscriber is a live object or a known
/// observer, and every name space finds only live infos naming live objects.
inline std::string CheckModel(const ModelScope& scope) {
    std::vector<MCObject*> objects;
    for (MCObject* root : scope.m_xRoots)
        fault_detail::Subtree(root, objects);
    const std::set<const MCObject*> live(objects.begin(), objects.end());
    std::set<const MCSubscriber*> subscribers(scope.m_xObservers);
    for (MCObject* object : objects)
        subscribers.insert(static_cast<const MCSubscriber*>(object));
    std::string out;
    auto fault = [&out](const std::string& what, long id) { out += what + "(" + std::to_string(id) + ") "; };
    for (MCObject* object : objects) {
        const long id = object->GetId();
        if (MCObject::ResolveId(id) != object)
            fault("unresolved", id);
        if (object->IsExpunging())
            fault("dying", id);
        for (MCPropertySetIter properties(object->GetPropertySet()); ++properties;) {
            MCProperty* property = properties.GetValue();
            std::vector<MCObject*> targets;
            bool bound = true;
            if (!property || property->GetFlag(MCItem::itemNulled) ||
                !fault_detail::Targets(property, targets, bound))
                continue;
            if (!bound)
                fault("unbound", id);
            for (MCObject* target : targets)
                if (target && !live.count(target))
                    fault("dangling", id);
        }
        MCSubscriberListIter each(object);
        while (++each)
            if (!subscribers.count(each.GetValue()))
                fault("stale-subscriber", id);
        if (auto* space = dynamic_cast<MCNameSpace*>(object)) {
            std::vector<std::string> names(scope.m_xNames);
            for (MCObject* ownee = space->GetFirstOwnee(); ownee; ownee = ownee->GetNextSibling())
                if (auto* info = dynamic_cast<MCStringInfo*>(ownee)) {
                    if (info->GetObjectA() && !live.count(info->GetObjectA()))
                        fault("info-of-dead", info->GetId());
                    names.push_back(info->GetEnteredName().str());
                }
            for (const std::string& name : names) {
                ZVTString text(name.c_str());
                MCObject* named = space->FindObject(text);
                if (named && !live.count(named))
                    fault("name-of-dead", id);
            }
        }
    }
    for (short type : scope.m_xTypes) {
        ZVTHTableT<MCObject*>* table = nullptr;
        if (!MCFactoryRegistry::GetInstances(type, table, nullptr))
            continue;
        for (ZVTHTableIterT<MCObject*> each(*table); ++each;)
            if (!live.count(each.Key()))
                fault("stray", each.Key()->GetId());
    }
    return out;
}

#endif
