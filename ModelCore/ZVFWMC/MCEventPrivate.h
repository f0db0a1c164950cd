#ifndef MCEVENTPRIVATE_H
#define MCEVENTPRIVATE_H

// What the delivery loops share: a hold on an event for one scope.

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

}  // namespace mc_detail

#endif
