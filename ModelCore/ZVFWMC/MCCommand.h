#ifndef MCCOMMAND_H
#define MCCOMMAND_H

// Deferred work. Rules and subscribers run in the middle of someone else's operation and must not destroy
// what that operation is walking; they post a command instead, and the host flushes the queue once the
// outer operation is over. Nothing inside the library posts or flushes.

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTDList.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTReference.h"

class MCObject;

/// A unit of deferred work, counted: made with new, it ends with its last reference, which for a posted
/// command is the queue's unless someone else holds it (MCCommandUser).
class MODELCORE_API MCCommand : public ZVTReference {
public:
    /// An uncounted command; posting it takes the first reference.
    MCCommand() = default;
    /// A copy is a new, uncounted command.
    MCCommand(const MCCommand&) = default;

    /// The work, run once per posting by MCCommandHandler::FlushQueue; the result is the command's own
    /// business, and an exception aborts the whole flush.
    virtual ZVTBoolean Do() = 0;

protected:
    /// Only the last RemoveReference destroys a command, so a host cannot make one on the stack.
    ~MCCommand() override;
};

/// Holds one counted reference on a command for a scope, so that the command outlives its run.
class MODELCORE_API MCCommandUser : public ZVTReferenceUser {
public:
    /// Holds `command`.
    explicit MCCommandUser(MCCommand& command);
    /// Holds the other's command too.
    MCCommandUser(const MCCommandUser& other) = default;
    /// Holds the other's command instead.
    MCCommandUser& operator=(const MCCommandUser& other) = default;
    /// Lets go of the command, which may end it.
    virtual ~MCCommandUser();

    /// The held command.
    MCCommand& GetCommand() const { return *static_cast<MCCommand*>((*this)()); }
};

/// The one queue of commands, itself the list of what waits, in order of posting. Made by the first
/// PostCommand and never destroyed: it lives to the end of the process. Single-threaded; re-entered only
/// from inside a running command.
class MODELCORE_API MCCommandHandler : private ZVTDList<MCCommand*> {
public:
    MCCommandHandler(const MCCommandHandler&) = delete;
    MCCommandHandler& operator=(const MCCommandHandler&) = delete;

    /// Takes a reference on `command` and queues it; while a flush runs, the command waits apart and
    /// runs in the same flush after everything that was queued before it. Makes the handler on first
    /// use. The command must have been made with new. Out of memory, the reference is dropped again (which
    /// ends a command nobody else holds) and std::bad_alloc passes on.
    static void PostCommand(MCCommand& command);
    /// Runs every queued command in order of posting, those posted meanwhile included, and drops the
    /// queue's reference on each. Does nothing before the first post and when called from inside a
    /// running command. An exception out of a command releases everything still waiting without running
    /// it, leaves the handler idle and empty, and goes on to the caller.
    static void FlushQueue();
    /// The handler, or null before the first post; never makes one.
    static MCCommandHandler* GetInstance() { return c_pxSingleton; }

    /// The number of commands queued and not yet run (those waiting apart during a flush excluded).
    using ZVTDList<MCCommand*>::Entries;
    /// True while a flush runs.
    ZVTBoolean IsFlushing() const { return m_bFlushing; }

private:
    MCCommandHandler() = default;
    // Releases both lists as OnAbort does; nothing calls it, since the handler outlives every host.
    ~MCCommandHandler() override;

    // Releases every command not yet run, the failed one included, and the waiting ones, without running
    // them, and leaves the handler idle.
    void OnAbort();

    static MCCommandHandler* c_pxSingleton;

    ZVTDList<MCCommand*> m_xPending;
    ZVTBoolean m_bFlushing = false;
};

/// Expunges one object when it runs, unless the object has gone in the meantime: the command keeps the
/// pointer uncounted and its id, and touches the object only while the id still resolves to it.
class MODELCORE_API MCExpungeCommand : public MCCommand {
public:
    /// A command on `object`, which may be null (the command then does nothing).
    explicit MCExpungeCommand(MCObject* object);

    /// Expunges the object as a top expunge, so its rules may still refuse; does nothing when it is gone.
    /// Always true.
    ZVTBoolean Do() override;

private:
    ~MCExpungeCommand() override;

    MCObject* m_pxObject;
    long m_nObjectId;
};

#endif
