#ifndef MCEVENTPRIVATE_H
#define MCEVENTPRIVATE_H

// What the delivery loops share: a hold on an event for one scope, and the generation of the
// audibility memos that MCObject::IsHeard keeps.

#include <cstdint>

#include "ModelCore/ZVFWMC/MCEvent.h"

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

}  // namespace mc_detail

#endif
