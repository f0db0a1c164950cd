#ifndef MCIDSPACE_H
#define MCIDSPACE_H

#include <cstddef>
#include <vector>

#include "foundation/ZVTExport.h"
#include "foundation/ZVTHDict.h"

class MCObject;

/// Hands out object ids and maps ids to objects, which it does not own; ids are never reused and fit 32 bits.
///
/// Ids handed out in sequence are kept in pages of consecutive ids found by index, so that a tree's
/// objects, whose ids are neighbours, are neighbours in the table too; ids far ahead of the counter
/// (chosen by a context, or read from a stream) go to a hashed table. Pages are made only while the live
/// ones stay well filled, so no pattern of ids costs more than a few words per id.
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
    /// Asks the processor to load where `id` is kept, ahead of its ResolveId; changes nothing.
    void Prefetch(long id) const;
    /// Forgets `id` (an unknown id is ignored); the id is not handed out again.
    void RemoveId(long id);
    /// Removes `id` only while it resolves to `pObject`; an id set by hand may name another object's entry.
    void RemovePointer(long id, const MCObject* pObject);
    /// Empties the table; the counter stays, so later ids stay fresh.
    void Reset();

    /// The hash of the table: the id itself, as unsigned int.
    static unsigned int HashId(const long& id);

private:
    static constexpr long c_nPageBits = 12;
    static constexpr long c_nPageSize = 1L << c_nPageBits;
    static constexpr std::size_t c_nMaxPages = std::size_t{1} << 16;

    struct Page;
    // The object under `id`, null when none; `slot` is its paged slot, null when the id is not paged.
    MCObject* Find(long id, MCObject**& slot) const;
    // The slot of `id` in its page, null when the id is not paged.
    MCObject** PagedSlot(long id) const;
    // The same, making the page when the id may be paged; null when it goes to the hashed table.
    MCObject** PagedSlotForInsert(long id);
    // Empties the paged slot of `id`; a page left empty is kept for reuse rather than freed.
    void ClearPagedSlot(long id, MCObject** slot);

    std::vector<Page*> m_xPages;      // by page index; null for a page not in use
    std::vector<Page*> m_xFreePages;  // empty pages, zeroed, for the next page to be made
    std::size_t m_nPages = 0;         // pages in use
    std::size_t m_nPaged = 0;         // ids held in pages
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
