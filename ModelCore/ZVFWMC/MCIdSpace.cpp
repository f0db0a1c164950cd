#include "ModelCore/ZVFWMC/MCIdSpace.h"

#include <algorithm>
#include <iterator>

#include "ModelCore/ZVFWMC/EXBase.h"

namespace {

const ZVTString c_xSourceFile("ModelCore/ZVFWMC/MCIdSpace");

// Ids are stored in 32 bits; a wider one could not be saved or resolved again.
constexpr long c_lMaxId = 0x7FFFFFFF;
constexpr long c_lMinId = -c_lMaxId - 1;

constexpr size_t c_nBuckets = 64;

}  // namespace

struct MCIdSpace::Page {
    std::size_t m_nUsed = 0;
    MCObject* m_apxSlots[c_nPageSize] = {};
};

MCIdSpace::MCIdSpace(long lastId) : m_xObjects(&MCIdSpace::HashId, c_nBuckets), m_lLastId(lastId) {}

MCIdSpace::~MCIdSpace() {
    // Not through Reset, which keeps the pages for reuse: a destructor must not allocate.
    for (Page* page : m_xPages)
        delete page;
    for (Page* page : m_xFreePages)
        delete page;
}

MCObject** MCIdSpace::PagedSlot(long id) const {
    if (id <= 0)
        return nullptr;
    const auto page = static_cast<std::size_t>(id >> c_nPageBits);
    if (page >= m_xPages.size() || m_xPages[page] == nullptr)
        return nullptr;
    return &m_xPages[page]->m_apxSlots[id & (c_nPageSize - 1)];
}

MCObject** MCIdSpace::PagedSlotForInsert(long id) {
    if (MCObject** slot = PagedSlot(id))
        return slot;
    if (id <= 0)
        return nullptr;
    const auto page = static_cast<std::size_t>(id >> c_nPageBits);
    // A new page only up to the counter's next, so that an id far ahead of the counter does not stretch
    // the index, and only while the pages in use are on average an eighth full: scattered ids would
    // otherwise cost a page each. Below the counter a page may come at any time: a walk of a tree, as a
    // copy's map of sources to clones is filled, meets the ids of each level in order, but the levels
    // interleaved.
    const auto counterPage = static_cast<std::size_t>(m_lLastId >> c_nPageBits);
    const bool inReach = page <= counterPage + 1 && page < c_nMaxPages;
    const bool filled = m_nPages < 16 || m_nPaged * 8 >= m_nPages * static_cast<std::size_t>(c_nPageSize);
    if (!inReach || !filled)
        return nullptr;
    if (page >= m_xPages.size())
        m_xPages.resize(page + 1, nullptr);
    Page* made = nullptr;
    if (m_xFreePages.empty()) {
        made = new Page;
    } else {
        made = m_xFreePages.back();
        m_xFreePages.pop_back();
    }
    m_xPages[page] = made;
    ++m_nPages;
    return &made->m_apxSlots[id & (c_nPageSize - 1)];
}

void MCIdSpace::ClearPagedSlot(long id, MCObject** slot) {
    *slot = nullptr;
    --m_nPaged;
    Page*& page = m_xPages[static_cast<std::size_t>(id >> c_nPageBits)];
    if (--page->m_nUsed == 0) {
        m_xFreePages.push_back(page);
        page = nullptr;
        --m_nPages;
    }
}

MCIdSpace& MCIdSpace::Global() {
    static MCIdSpace s_xGlobal;
    return s_xGlobal;
}

long MCIdSpace::RequestId() {
    if (m_lLastId >= c_lMaxId)
        MC_THROW_UNEXPECTED(c_xSourceFile);
    return ++m_lLastId;
}

inline MCObject* MCIdSpace::Find(long id, MCObject**& slot) const {
    slot = PagedSlot(id);
    if (slot != nullptr && *slot != nullptr)
        return *slot;
    MCObject* pObject = nullptr;
    // An id that went to the hashed table before its page was made is still there.
    if (!m_xObjects.IsEmpty())
        m_xObjects.Find(id, pObject);
    return pObject;
}

void MCIdSpace::RegisterPointer(long id, MCObject* pObject) {
    // The paged slot the search finds serves the insert too.
    MCObject** slot = nullptr;
    if (MCObject* pExisting = Find(id, slot)) {
        if (pExisting == pObject)
            return;
        throw EXDuplicateResolution(pExisting, pObject);
    }
    if (id > c_lMaxId || id < c_lMinId)
        MC_THROW_UNEXPECTED(c_xSourceFile);
    if (!slot)
        slot = PagedSlotForInsert(id);
    if (slot) {
        *slot = pObject;
        ++m_nPaged;
        ++m_xPages[static_cast<std::size_t>(id >> c_nPageBits)]->m_nUsed;
    } else {
        m_xObjects.Insert(id, pObject);
    }
    if (id > m_lLastId)
        m_lLastId = id;
}

MCObject* MCIdSpace::ResolveId(long id) const {
    MCObject** slot = nullptr;
    return Find(id, slot);
}

void MCIdSpace::Prefetch(long id) const {
    if (MCObject** slot = PagedSlot(id))
        __builtin_prefetch(slot);
    // Where ResolveId looks next when the slot is empty.
    if (!m_xObjects.IsEmpty())
        m_xObjects.Prefetch(id);
}

void MCIdSpace::RemoveId(long id) {
    if (MCObject** slot = PagedSlot(id); slot != nullptr && *slot != nullptr) {
        ClearPagedSlot(id, slot);
        return;
    }
    if (!m_xObjects.IsEmpty())
        m_xObjects.Remove(id);
}

void MCIdSpace::RemovePointer(long id, const MCObject* pObject) {
    if (MCObject** slot = PagedSlot(id); slot != nullptr && *slot != nullptr) {
        if (*slot == pObject)
            ClearPagedSlot(id, slot);
        return;
    }
    if (!m_xObjects.IsEmpty())
        m_xObjects.Remove(id, const_cast<MCObject*>(pObject));
}

void MCIdSpace::Reset() {
    for (Page*& page : m_xPages) {
        if (page == nullptr)
            continue;
        // Back to zero before reuse: a page is only ever handed out empty.
        page->m_nUsed = 0;
        std::fill(std::begin(page->m_apxSlots), std::end(page->m_apxSlots), nullptr);
        m_xFreePages.push_back(page);
        page = nullptr;
    }
    m_xPages.clear();
    m_nPages = 0;
    m_nPaged = 0;
    m_xObjects.Clear();
}

unsigned int MCIdSpace::HashId(const long& id) {
    return static_cast<unsigned int>(id);
}
