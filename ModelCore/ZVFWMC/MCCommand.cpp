#include "ModelCore/ZVFWMC/MCCommand.h"

#include <utility>

#include "ModelCore/ZVFWMC/MCObject.h"

MCCommand::~MCCommand() = default;

MCCommandUser::MCCommandUser(MCCommand& command) : ZVTReferenceUser(&command) {}

MCCommandUser::~MCCommandUser() = default;

MCCommandHandler* MCCommandHandler::c_pxSingleton = nullptr;

MCCommandHandler::~MCCommandHandler() {
    OnAbort();
}

void MCCommandHandler::PostCommand(MCCommand& command) {
    command.AddReference();
    try {
        if (!c_pxSingleton)
            c_pxSingleton = new MCCommandHandler;
        if (c_pxSingleton->m_bFlushing)
            c_pxSingleton->m_xPending.Append(&command);
        else
            c_pxSingleton->Append(&command);
    } catch (...) {
        // The post took the command over; one it cannot queue it lets go of again.
        command.RemoveReference();
        throw;
    }
}

void MCCommandHandler::FlushQueue() {
    MCCommandHandler* handler = c_pxSingleton;
    if (!handler || handler->m_bFlushing)
        return;
    handler->m_bFlushing = true;
    try {
        for (;;) {
            // A command stays at the head while it runs, so that an abort releases it with the rest; its
            // reference goes only after it is off the list, as its end may post again.
            while (!handler->IsEmpty()) {
                MCCommand* command = handler->First();
                command->Do();
                handler->RemoveFirst();
                command->RemoveReference();
            }
            if (handler->m_xPending.IsEmpty())
                break;
            static_cast<ZVTDList<MCCommand*>&>(*handler) = std::move(handler->m_xPending);
        }
    } catch (...) {
        handler->OnAbort();
        throw;
    }
    handler->m_bFlushing = false;
}

void MCCommandHandler::OnAbort() {
    // One at a time off the front: a command whose end posts another finds consistent lists, and what it
    // posts while the flag still stands is released here too.
    while (!IsEmpty() || !m_xPending.IsEmpty()) {
        MCCommand* command = !IsEmpty() ? RemoveFirst() : m_xPending.RemoveFirst();
        command->RemoveReference();
    }
    m_bFlushing = false;
}

MCExpungeCommand::MCExpungeCommand(MCObject* object)
    : m_pxObject(object), m_nObjectId(object ? object->GetId() : 0) {}

MCExpungeCommand::~MCExpungeCommand() = default;

ZVTBoolean MCExpungeCommand::Do() {
    // Ids are never reused, so an id that no longer resolves to the object means it is gone, and the
    // pointer is not looked at again.
    if (m_pxObject && m_nObjectId != 0 && MCObject::ResolveId(m_nObjectId) == m_pxObject)
        m_pxObject->Expunge(true);
    return true;
}
