#ifndef MCVISITOR_H
#define MCVISITOR_H

// The visitor side of the double dispatch over objects and properties, and the guard through which one
// client at a time uses a visitor. Walkers and agents, which drive visitors over whole trees, build on it.
//
// A visitor keeps one "user" (the first to attach) and, apart from that, a list of every guard made on
// it, so that the visitor's end reaches each of them: a guard that was refused because the visitor was
// taken still works, and must not be left holding a dead visitor.

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTHSet.h"

class MCObject;
class MCVisitorUser;

/// Visits objects, with property kinds adding their own interfaces (MCPropertyVisitorT) beside this one;
/// it serves one user at a time and tells each of its user guards when it ends (InvalidateVisitor).
class MODELCORE_API MCVisitor {
public:
    /// A visitor without a user.
    MCVisitor();
    MCVisitor(const MCVisitor&) = delete;
    MCVisitor& operator=(const MCVisitor&) = delete;
    /// Tells every user guard still on this visitor to invalidate itself, and unlinks it.
    virtual ~MCVisitor();
    /// Called by MCObject::AcceptVisitor; the base does nothing.
    virtual void Visit(MCObject* object);

    /// With `attach`, stores `user` and gives true when there is no user yet, or else tells the present
    /// user to invalidate itself, keeps it and gives false; without, clears the user when it is `user`
    /// (true) and otherwise gives false; a null user gives false.
    ZVTBoolean Use(MCVisitorUser* user, ZVTBoolean attach);

protected:
    MCVisitorUser* m_pxUser = nullptr;

private:
    friend class MCVisitorUser;

    // The guards made on this visitor, stored user or not, so that the destructor reaches them all.
    MCVisitorUser* m_pxFirstGuard = nullptr;
};

/// Holds a visitor for its lifetime: attaches in the constructor, detaches in the destructor, and is
/// told by InvalidateVisitor when another user takes the visitor or the visitor ends.
class MODELCORE_API MCVisitorUser {
public:
    /// Attaches to `visitor` (which may be null) through Use; a refused attach is not an error.
    explicit MCVisitorUser(MCVisitor* visitor);
    MCVisitorUser(const MCVisitorUser&) = delete;
    MCVisitorUser& operator=(const MCVisitorUser&) = delete;
    /// Detaches from the visitor, if it still has one.
    virtual ~MCVisitorUser();
    /// Called when the visitor was taken by another user or is ending; the user must stop using it.
    virtual void InvalidateVisitor() = 0;

    /// The visitor given to the constructor; null once that visitor has ended.
    MCVisitor* GetVisitor() const { return m_pxVisitor; }

private:
    friend class MCVisitor;

    MCVisitor* m_pxVisitor;
    // Links in the visitor's list of guards; this guard is listed exactly while m_pxVisitor is set.
    MCVisitorUser* m_pxPrevGuard = nullptr;
    MCVisitorUser* m_pxNextGuard = nullptr;
};

/// Adds the id of every object it visits to a set that it does not own and does not empty first.
class MODELCORE_API MCTreeVisitor : public MCVisitor {
public:
    /// A visitor that fills `ids`, which must outlive it.
    explicit MCTreeVisitor(ZVTHSetT<long>& ids);
    /// Adds `object`'s id; EXUnexpected for a null object.
    void Visit(MCObject* object) override;

private:
    ZVTHSetT<long>& m_xIds;
};

#endif
