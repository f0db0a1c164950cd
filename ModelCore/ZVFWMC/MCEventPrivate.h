#ifndef MCEVENTPRIVATE_H
#define MCEVENTPRIVATE_H

// What the delivery loops share: a hold on an event for one scope, the generation of the audibility
// memos that MCObject::IsHeard keeps, and how a subscriber is known to react as every object does.

#include <cstdint>

#include "ModelCore/ZVFWMC/MCEvent.h"
#include "ModelCore/ZVFWMC/MCSubscriber.h"

class MCObject;

namespace mc_detail {

// Counts the event for its scope exactly as an MCEventUser does, the last release destroying it, but
// inline and with nothing virtual: every level of every climb takes one.
class EventHold {
public:
    explicit EventHold(MCEvent& event) : m_rEvent(event) { m_rEvent.AddReference(); }
    ~EventHold() { m_rEvent.RemoveReference(); }
    EventHold(const EventHold&) = delete;
    EventHold& operator=(const EventHold&) = delete;

private:
    MCEvent& m_rEvent;
};

// The generation of the audibility memos: a memo is good while its stamp equals it. Whatever could make a
// remembered answer wrong (a subscription change on a subject some memo relies on, a registration in the
// notification directory, a type code changed by hand) moves it on, which drops every memo at once.
// Stamps are 32 bits: past that many generations nothing is remembered any more.
extern std::uint64_t g_nHeardGeneration;

// Drops every audibility memo.
inline void ForgetHeard() {
    ++g_nHeardGeneration;
}

// The function a subscriber's Notify calls, as the compiler's extension reads it from the object; with
// another compiler there is no reading, and every subscriber counts as one with a Notify of its own.
#if defined(__GNUC__) && !defined(__clang__)
#define MC_READS_NOTIFY_OVERRIDER 1
using NotifyCode = void (*)(MCSubscriber*, MCEvent&);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpmf-conversions"
#pragma GCC diagnostic ignored "-Wpedantic"
inline NotifyCode NotifyOf(MCSubscriber* subscriber) {
    return reinterpret_cast<NotifyCode>(subscriber->*(&MCSubscriber::Notify));
}
#pragma GCC diagnostic pop
// MCObject's own Notify, read from the first object while its MCObject constructor runs.
extern NotifyCode g_pfnObjectNotify;
#endif

// Whether `subscriber` is an object whose class keeps MCObject::Notify as it is now, so that hearing an
// event does only what every object does (HearAsObject). Read afresh at each call: an object being made
// or destroyed changes its Notify with its class.
inline bool KeepsObjectNotify(MCSubscriber* subscriber) {
#ifdef MC_READS_NOTIFY_OVERRIDER
    return g_pfnObjectNotify != nullptr && NotifyOf(subscriber) == g_pfnObjectNotify;
#else
    (void)subscriber;
    return false;
#endif
}

// MCObject::Notify's reaction: the directory's search for `object`'s type, or when that would end at once
// in MCObjectNotification, the event passed on to the object's own subscribers, held as the search holds
// it. Deliveries call it directly for a subscriber that KeepsObjectNotify, without the virtual hop.
void HearAsObject(MCObject& object, MCEvent& event);

}  // namespace mc_detail

#endif
