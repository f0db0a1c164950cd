#ifndef MCGUARDSPRIVATE_H
#define MCGUARDSPRIVATE_H

// What walkers and visitors share with their guards: the one-user rule and the list of every guard made
// on them, so that each can be told when its walker or visitor ends.

#include "foundation/ZVTBoolean.h"

namespace mc_detail {

// Attaching takes the free place or tells the present user to step aside (and fails); detaching frees
// the place only for the user that holds it.
template <class User, class StepAside>
ZVTBoolean TakeOrLeave(User*& current, User* user, ZVTBoolean attach, StepAside stepAside) {
    if (!user)
        return false;
    if (!attach) {
        if (user != current)
            return false;
        current = nullptr;
        return true;
    }
    if (!current) {
        current = user;
        return true;
    }
    stepAside(*current);
    return false;
}

// Puts `guard` at the head of the list that starts at `first`.
template <class Guard>
void LinkGuard(Guard*& first, Guard* guard, Guard* Guard::*prev, Guard* Guard::*next) {
    guard->*next = first;
    if (first)
        first->*prev = guard;
    first = guard;
}

// Takes `guard` out of the list that starts at `first`.
template <class Guard>
void UnlinkGuard(Guard*& first, Guard* guard, Guard* Guard::*prev, Guard* Guard::*next) {
    if (guard->*prev)
        (guard->*prev)->*next = guard->*next;
    else
        first = guard->*next;
    if (guard->*next)
        (guard->*next)->*prev = guard->*prev;
}

}  // namespace mc_detail

#endif
