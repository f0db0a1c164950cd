#ifndef MCWALKER_H
#define MCWALKER_H

// Walkers give the objects of a pass one at a time, in an order of their own; an agent (MCAgent) drives
// one and acts on what it gives. A walker serves one user at a time, through the guard MCWalkerUser.
//
// Besides its one user, a walker lists every guard made on it, so that its end reaches each of them: a
// second agent made on a walker in use is refused as the user but works all the same, and must not be
// left holding a dead walker.

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"

class MCObject;
class MCWalkerUser;

/// The order of a pass over objects from a start object; on its end, every user guard still on it is
/// told (InvalidateWalker).
class MODELCORE_API MCWalker {
public:
    MCWalker(const MCWalker&) = delete;
    MCWalker& operator=(const MCWalker&) = delete;
    /// Tells every user guard still on this walker to invalidate itself, and unlinks it.
    virtual ~MCWalker();

    /// Starts the walk afresh from `start`.
    virtual void Reset(MCObject* start) = 0;
    /// Steps to the next object; false when the walk is over.
    virtual ZVTBoolean Traverse() = 0;
    /// The object of the last successful Traverse; null before the first.
    virtual MCObject* GetValue() const = 0;

    /// The start of the walk.
    MCObject* GetStart() const { return m_pxStart; }
    /// Sets the start for the next Reset; a null start changes nothing.
    void SetStart(MCObject* start);
    /// With `attach`, stores `user` and gives true when there is no user yet, or else tells the present
    /// user to invalidate itself, keeps it and gives false; without, clears the user when it is `user`
    /// (true) and otherwise gives false; a null user gives false.
    ZVTBoolean Use(MCWalkerUser* user, ZVTBoolean attach);

protected:
    /// A walker from `start`, without a user.
    explicit MCWalker(MCObject* start);

    MCObject* m_pxStart;
    MCWalkerUser* m_pxUser = nullptr;

private:
    friend class MCWalkerUser;

    // The guards made on this walker, stored user or not, so that the destructor reaches them all.
    MCWalkerUser* m_pxFirstGuard = nullptr;
};

/// Holds a walker for its lifetime: attaches in the constructor, detaches in the destructor, and is told
/// by InvalidateWalker when another user takes the walker or the walker ends.
class MODELCORE_API MCWalkerUser {
public:
    /// Attaches to `walker` (which may be null) through Use; a refused attach is not an error.
    explicit MCWalkerUser(MCWalker* walker);
    MCWalkerUser(const MCWalkerUser&) = delete;
    MCWalkerUser& operator=(const MCWalkerUser&) = delete;
    /// Detaches from the walker, if it still has one.
    virtual ~MCWalkerUser();
    /// Called when the walker was taken by another user or is ending; the user must stop using it.
    virtual void InvalidateWalker() = 0;

    /// The walker given to the constructor; null once that walker has ended.
    MCWalker* GetWalker() const { return m_pxWalker; }

private:
    friend class MCWalker;

    MCWalker* m_pxWalker;
    // Links in the walker's list of guards; this guard is listed exactly while m_pxWalker is set.
    MCWalkerUser* m_pxPrevGuard = nullptr;
    MCWalkerUser* m_pxNextGuard = nullptr;
};

#endif
