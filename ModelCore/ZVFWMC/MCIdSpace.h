#ifndef MCIDSPACE_H
#define MCIDSPACE_H

#include "foundation/ZVTExport.h"
#include "foundation/ZVTHDict.h"

class MCObject;

/// Hands out object ids and maps ids to objects, which it does not own; ids are never reused and fit 32 bits.
class MODELCORE_API MCIdSpace {
public:
    /// An empty space whose next id is `lastId + 1`.
    explicit MCIdSpace(long lastId = 0);
    virtual ~MCIdSpace();
    MCIdSpace(const MCIdSpace&) = delete;
    MCIdSpace& operator=(const MCIdSpace&) = delete;

    /// The process-wide space of the live model; Reset by MdlCore::Terminate, destroyed when the library
    /// unloads.
    static MCIdSpace& Global();

    /// The next id, not checked against the table; throws EXUnexpected rather than go past 0x7FFFFFFF.
    long RequestId();
    /// Maps `id` to `pObject`, raising the counter to `id` when it is higher; the same pair again is
    /// harmless, another object under a taken id throws EXDuplicateResolution, an id outside 32 bits throws
    /// EXUnexpected, both leaving the space unchanged.
    void RegisterPointer(long id, MCObject* pObject);
    /// The object under `id`, null for an unknown id.
    MCObject* ResolveId(long id) const;
    /// Forgets `id` (an unknown id is ignored); the id is not handed out again.
    void RemoveId(long id);
    /// Removes `id` only while it resolves to `pObject`; an id set by hand may name another object's entry.
    void RemovePointer(long id, const MCObject* pObject);
    /// Empties the table; the counter stays, so later ids stay fresh.
    void Reset();

    /// The hash of the table: the id itself, as unsigned int.
    static unsigned int HashId(const long& id);

private:
    ZVTHDict<long, MCObject*> m_xObjects;
    long m_lLastId;
};

/// Maps an id of a stored world to the id that stands for it in the target model; the owner deletes it
/// through its own class.
class MODELCORE_API MCIdConverter {
public:
    /// The id standing for `id` in the target, 0 when none is known.
    virtual long ConvertId(long id) = 0;

protected:
    ~MCIdConverter() = default;
};

#endif
