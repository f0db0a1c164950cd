#include "ModelCore/ZVFWMC/MCIdSpace.h"

#include "ModelCore/ZVFWMC/EXBase.h"

namespace {

const ZVTString c_xSourceFile("ModelCore/ZVFWMC/MCIdSpace");

// Ids are stored in 32 bits; a wider one could not be saved or resolved again.
constexpr long c_lMaxId = 0x7FFFFFFF;
constexpr long c_lMinId = -c_lMaxId - 1;

constexpr size_t c_nBuckets = 64;

}  // namespace

MCIdSpace::MCIdSpace(long lastId) : m_xObjects(&MCIdSpace::HashId, c_nBuckets), m_lLastId(lastId) {}

MCIdSpace::~MCIdSpace() = default;

MCIdSpace& MCIdSpace::Global() {
    static MCIdSpace s_xGlobal;
    return s_xGlobal;
}

long MCIdSpace::RequestId() {
    if (m_lLastId >= c_lMaxId)
        MC_THROW_UNEXPECTED(c_xSourceFile);
    return ++m_lLastId;
}

void MCIdSpace::RegisterPointer(long id, MCObject* pObject) {
    MCObject* pExisting = nullptr;
    if (m_xObjects.Find(id, pExisting)) {
        if (pExisting == pObject)
            return;
        throw EXDuplicateResolution(pExisting, pObject);
    }
    if (id > c_lMaxId || id < c_lMinId)
        MC_THROW_UNEXPECTED(c_xSourceFile);
    m_xObjects.Insert(id, pObject);
    if (id > m_lLastId)
        m_lLastId = id;
}

MCObject* MCIdSpace::ResolveId(long id) const {
    MCObject* pObject = nullptr;
    m_xObjects.Find(id, pObject);
    return pObject;
}

void MCIdSpace::RemoveId(long id) {
    m_xObjects.Remove(id);
}

void MCIdSpace::RemovePointer(long id, const MCObject* pObject) {
    m_xObjects.Remove(id, const_cast<MCObject*>(pObject));
}

void MCIdSpace::Reset() {
    m_xObjects.Clear();
}

unsigned int MCIdSpace::HashId(const long& id) {
    return static_cast<unsigned int>(id);
}
