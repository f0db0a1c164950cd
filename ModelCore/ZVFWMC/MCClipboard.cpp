#include "ModelCore/ZVFWMC/MCClipboard.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <unordered_set>
#include <utility>

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCClipboardPrivate.h"
#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCEndsPrivate.h"
#include "ModelCore/ZVFWMC/MCEnvironment.h"
#include "ModelCore/ZVFWMC/MCGenericObject.h"
#include "ModelCore/ZVFWMC/MCMetaInfo.h"
#include "ModelCore/ZVFWMC/MCObject.h"
#include "ModelCore/ZVFWMC/MCObjectFilters.h"
#include "ModelCore/ZVFWMC/MCProperty.h"
#include "ModelCore/ZVFWMC/MCPropertySemantics.h"
#include "ModelCore/ZVFWMC/MCRefProperty.h"
#include "ModelCore/ZVFWMC/MCUDPMap.h"
#include "platform/HUB.h"

namespace {

const ZVTString c_xSourceFile("ModelCore/ZVFWMC/MCClipboard");

// No entry level reaches it, so a barrier at this value discards nothing.
constexpr long c_lNoBarrier = 0x7FFF;
// Levels stay below the barrier: a chain of references deeper than a short can count stays at the bottom.
constexpr short c_sDeepestLevel = 0x7FFE;

short Deeper(short level) {
    return level < c_sDeepestLevel ? static_cast<short>(level + 1) : c_sDeepestLevel;
}
// Room the inheritable property types are gathered in.
constexpr std::size_t c_nInheritableCapacity = 64;
// Initial room of the vectors that receive ids when the caller gives none.
constexpr std::size_t c_nIdsCapacity = 64;
constexpr std::size_t c_nPasteBuckets = 64;

template <class T>
bool Read(MCStream& stream, T& value) {
    stream >> value;
    return !stream.fail();
}

// The object an object's Parent names, null when it names none or holds a stored id only.
MCObject* ParentOf(const MCObject* object) {
    auto* parent = dynamic_cast<const MCSRef*>(object->FindProperty(MCCodes::pParent, false));
    if (!parent || !parent->IsBound())
        return nullptr;
    MCSRefRawAccessor accessor;
    return object->GetProperty(MCCodes::pParent, accessor) ? accessor.GetValue() : nullptr;
}

// A climb along Parent. References are read raw from files and buffers, so a ring is possible: the climb
// ends when it comes back to an object it has passed.
class ParentClimb {
public:
    explicit ParentClimb(MCObject* start) : m_pxCurrent(start) {}
    MCObject* Current() const { return m_pxCurrent; }
    MCObject* Up() {
        if (m_pxCurrent) {
            m_xSeen.insert(m_pxCurrent);
            m_pxCurrent = ParentOf(m_pxCurrent);
            if (m_pxCurrent && m_xSeen.count(m_pxCurrent))
                m_pxCurrent = nullptr;
        }
        return m_pxCurrent;
    }

private:
    MCObject* m_pxCurrent;
    std::unordered_set<const MCObject*> m_xSeen;
};

// The nearest object above `object` along Parent that carries `type`, and its property; null when none
// does. With `entries`, the climb stops at the first ancestor that is itself in the clip.
const MCProperty* InheritedProperty(MCObject* object, short type,
                                    ZVTHDict<MCObject*, MCClipEntry*>* entries = nullptr) {
    ParentClimb climb(object);
    for (MCObject* current = object; current;) {
        const MCProperty* property = current->FindProperty(type, false);
        if (property && current != object)
            return property;
        current = climb.Up();
        if (current && entries && entries->Contains(current))
            return nullptr;
    }
    return nullptr;
}

MCEnvironment& Environment() {
    MCEnvironment* environment = MCEnvironment::GetInstance();
    if (!environment)
        MC_THROW_UNEXPECTED(c_xSourceFile);
    return *environment;
}

// The buffer holds 32 bits for the source's address; it only has to tell, together with the id, whether
// a paste goes into the object it was copied from in this run.
unsigned long AddressToken(const MCObject* object) {
    const auto address = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(object));
    return static_cast<unsigned long>((address ^ (address >> 32)) & 0xFFFFFFFFu);
}

ZVTString Decimal(long value) {
    char text[16];
    std::snprintf(text, sizeof text, "%ld", value);
    return ZVTString(text);
}

MCObject* MakeScratch() {
    return dynamic_cast<MCObject*>(
        MCFactoryRegistry::CreateItem(MCGenericObject::c_sType, nullptr, nullptr, nullptr));
}

// The passes over what a paste made go in creation order, which after a large expunge is anywhere in
// memory: they ask for an object some steps ahead, and for its properties once the object is there.
constexpr std::size_t c_nObjectsAhead = 16;
constexpr std::size_t c_nPropertiesAhead = 8;

void PrefetchProperties(const MCObject* object) {
    for (MCPropertySetIter properties(object->GetPropertySet()); ++properties;)
        __builtin_prefetch(properties.GetValue());
}

// Objects made together lie together: their entries do too, so that a closure over a subtree, and the
// growing of the dictionary, touch it in runs rather than at random. 16-byte steps in 4 KB blocks.
unsigned int HashAddress(MCObject* const& object) {
    return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(object) >> 4);
}
constexpr unsigned int c_nAddressLocalityBits = 8;

long StoredId(MCObject* stored) {
    return static_cast<long>(reinterpret_cast<std::intptr_t>(stored));
}

}  // namespace

// --- MCClip ----------------------------------------------------------------------------------------

ZVTBoolean MCClip::CopyTo(ZVTSList<MCObject*>& objects, MCObject& source, ZVTSList<MCObject*>& targets,
                          MCObject& target, MCClipIdConverter* converter, ZVTOrderedVectorT<long>* ids) {
    std::vector<char> buffer;
    {
        MCClipList copy(objects, source, converter ? MCClipList::modeConvert : MCClipList::modeCopy,
                        converter);
        const long size = copy.GetBufferSize();
        if (size <= 0)
            return false;
        buffer.resize(static_cast<std::size_t>(size));
        copy.CopyBuffer(buffer.data());
    }
    ZVTOrderedVectorT<long> local(c_nIdsCapacity);
    if (!ids)
        ids = &local;
    MCClipList paste(targets, target, buffer.data(), static_cast<int>(buffer.size()), ids, converter);
    return ids->Length() > 0;
}

// --- dependencies and contexts --------------------------------------------------------------------

MCClipDependency::~MCClipDependency() = default;

MCClipContext::~MCClipContext() = default;

MCClipCreateContext::~MCClipCreateContext() = default;

ZVTBoolean MCClipCreateContext::SemanticsNeeded() {
    return false;
}

long MCClipCreateContext::RequestId() {
    return 0;
}

// --- the closure ------------------------------------------------------------------------------------

MCClipList::MCClipList(ZVTSList<MCObject*>& objects, MCObject& source, mode nMode,
                       MCClipIdConverter* converter)
    : m_eMode(nMode),
      m_xEntries(HashAddress, 3 * objects.Entries() + 1, c_nAddressLocalityBits),
      m_lSelectionSize(static_cast<long>(objects.Entries())),
      m_pxConverter(converter),
      m_pxWork(std::make_unique<MCClipListWork>()) {
    m_pxCopyStream = std::make_unique<MCCopyStream>(&m_xEntries);
    const MCObjectSemReg* rules = MCObjectSemReg::GetInstance();
    m_pxCopyStream->SetPrepare(!rules || !rules->HasInterest(MCObjectSem::PostCopy));
    for (std::size_t i = 0; i < objects.Entries(); ++i) {
        MCObject* object = objects.At(i);
        Insert(object ? object->GetOwner(0, MCItem::rttiDerived) : nullptr, object, 0, MCClip::entryCopy,
               false);
        Expand();
    }
    PurgeUnresolved();

    // By level, and within a level in creation order, so the buffer is the same from run to run: a
    // counting sort, as levels are small numbers.
    std::vector<std::size_t> starts;
    for (const MCClipEntry& entry : m_pxWork->m_xEntries) {
        if (!entry.m_bListed)
            continue;
        const auto level = static_cast<std::size_t>(entry.m_sLevel);
        if (level + 1 >= starts.size())
            starts.resize(level + 2, 0);
        ++starts[level + 1];
    }
    for (std::size_t level = 1; level < starts.size(); ++level)
        starts[level] += starts[level - 1];
    std::vector<MCClipEntry*> sorted(starts.empty() ? 0 : starts.back());
    for (MCClipEntry& entry : m_pxWork->m_xEntries) {
        if (entry.m_bListed)
            sorted[starts[static_cast<std::size_t>(entry.m_sLevel)]++] = &entry;
    }

    m_pxCopyStream->Reserve(sorted.size());
    m_pxCopyStream->WriteHead(source);
    // Level order is not the order the closure met the objects in: what a few entries ahead will need is
    // asked for early: the entry first, its record once the entry is there.
    constexpr std::size_t c_nAhead = 8;
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        if (i + 2 * c_nAhead < sorted.size())
            __builtin_prefetch(sorted[i + 2 * c_nAhead]);
        if (i + c_nAhead < sorted.size())
            m_pxCopyStream->Prefetch(*sorted[i + c_nAhead]);
        m_pxCopyStream->WriteEntry(*sorted[i]);
    }
    m_pxCopyStream->WriteEnd();
    m_xEntries.Clear();
    const std::vector<std::pair<short, short>> undeclared = std::move(m_pxWork->m_xUndeclared);
    m_pxWork.reset();
    for (const auto& [objectType, propertyType] : undeclared) {
        HUBMessageParameter parameter(2, MCCodes::styleWarning);
        parameter.SetString(0, Decimal(objectType));
        parameter.SetString(1, Decimal(propertyType));
        HUBInterface::ShowMessage(MCCodes::msgKindInformation, MCCodes::msgUndeclaredClip, parameter);
    }
}

MCClipList::~MCClipList() = default;

long MCClipList::GetBufferSize() const {
    return m_pxCopyStream ? static_cast<long>(m_pxCopyStream->GetBytes().size()) : 0;
}

void MCClipList::CopyBuffer(void* target) {
    if (!m_pxCopyStream || !target)
        return;
    const std::string& bytes = m_pxCopyStream->GetBytes();
    std::memcpy(target, bytes.data(), bytes.size());
}

ZVTBoolean MCClipList::Insert(MCObject* owner, MCObject* object, short level, MCClip::entry_type type,
                              ZVTBoolean inherited) {
    if (!object)
        return false;
    const std::pair<MCClipEntry**, bool> slot = m_xEntries.FindOrInsert(object, nullptr);
    if (!slot.second) {
        MCClipEntry* entry = *slot.first;
        // What the object brought in keeps its levels: it was expanded once, when its entry was made. A
        // selected object (level 0 comes only from the selection) is placed by its real owner, whatever
        // reached it first.
        if (level < entry->m_sLevel) {
            entry->m_sLevel = level;
            if (level == 0) {
                entry->m_pxOwner = owner;
                entry->m_lOwnerId = owner ? owner->GetId() : 0;
            }
        }
        if (entry->m_eType != MCClip::entryCopy && type == MCClip::entryCopy)
            entry->m_eType = MCClip::entryCopy;
        if (inherited) {
            ParentClimb climb(entry->m_pxOwner);
            while (climb.Current()) {
                MCObject* parent = climb.Up();
                if (parent && parent == owner) {
                    entry->m_pxOwner = owner;
                    entry->m_lOwnerId = owner->GetId();
                    break;
                }
            }
        }
        return true;
    }
    MCClipEntry& entry = m_pxWork->m_xEntries.emplace_back();
    entry.m_pxObject = object;
    entry.m_lId = object->GetId();
    entry.m_pxOwner = owner;
    entry.m_lOwnerId = owner ? owner->GetId() : 0;
    entry.m_sLevel = level;
    entry.m_eType = type;
    *slot.first = &entry;
    m_pxCopyStream->Prepare(entry);

    // The calls the expansion makes go on the work stack in reverse, so that they run in the order a
    // recursion would run them, each new object expanded before the next call of its expander.
    std::vector<MCClipListWork::InsertCall>& pending = m_pxWork->m_xPending;
    const std::size_t start = pending.size();
    AddOwnees(object, level, type);
    AddReferences(object, level, type);
    std::reverse(pending.begin() + static_cast<std::ptrdiff_t>(start), pending.end());
    return true;
}

void MCClipList::Expand() {
    std::vector<MCClipListWork::InsertCall>& pending = m_pxWork->m_xPending;
    while (!pending.empty()) {
        const MCClipListWork::InsertCall call = pending.back();
        pending.pop_back();
        Insert(call.m_pxOwner, call.m_pxObject, call.m_sLevel, call.m_eType, call.m_bInherited);
    }
}

void MCClipList::AddOwnees(MCObject* object, short level, MCClip::entry_type type) {
    for (MCObject* ownee = object->GetFirstOwnee(); ownee; ownee = ownee->GetNextSibling()) {
        m_pxWork->m_xPending.push_back({object, ownee, Deeper(level), type, false});
        // The walk is depth first, so the siblings wait while the first one's subtree goes: their
        // properties and places in the dictionary can load meanwhile.
        m_xEntries.Prefetch(ownee);
        for (MCPropertySetIter properties(ownee->GetPropertySet()); ++properties;)
            __builtin_prefetch(properties.GetValue());
    }
}

void MCClipList::AddReferences(MCObject* object, short level, MCClip::entry_type type) {
    MCPropertySetIter properties(object->GetPropertySet());
    while (++properties) {
        if (MCProperty* property = properties.GetValue())
            AddReference(object, property, level, type, false);
    }
    const ZVTOrderedVectorT<short>& inheritable = m_pxCopyStream->Inheritance().Of(object->GetType());
    for (std::size_t i = 0; i < inheritable.Length(); ++i) {
        // The object's own value was dealt with above and does not stop the climb.
        if (const MCProperty* property = InheritedProperty(object, inheritable[i]))
            AddReference(object, property, level, type, true);
    }
}

void MCClipList::AddReference(MCObject* object, const MCProperty* property, short level,
                              MCClip::entry_type type, ZVTBoolean inherited) {
    if (!property || property->GetFlag(MCItem::itemNulled))
        return;
    const short propertyType = property->GetType();
    const short translated = MCFactoryRegistry::Translate(propertyType, false);
    if (translated != MCCodes::pReference && translated != MCCodes::pReferenceList)
        return;
    MCFactoryRegistry::clip_reference clip = MCFactoryRegistry::GetClipFlag(object->GetType(), propertyType);
    if (clip == MCFactoryRegistry::clipNoUsage) {
        m_pxWork->m_xUndeclared.emplace_back(object->GetType(), propertyType);
        clip = MCFactoryRegistry::clipFollow;
    } else if (clip == MCFactoryRegistry::clipUndecided) {
        clip = MCFactoryRegistry::clipDepend;
    }

    if (translated == MCCodes::pReference) {
        auto* single = dynamic_cast<const MCSRef*>(property);
        if (single && single->IsBound() && single->GetValue())
            AddReferenceObject(object, single->GetValue(), propertyType, level, type, clip, inherited);
        return;
    }
    auto* list = dynamic_cast<const MCVPropertyT<MCObject*>*>(property);
    if (!list)
        return;
    if (auto* refs = dynamic_cast<const MCVRef*>(list); refs && !refs->IsBound())
        return;
    const ZVTSList<MCObject*> values = list->GetValue();
    for (std::size_t i = 0; i < values.Entries(); ++i) {
        if (MCObject* referred = values.At(i))
            AddReferenceObject(object, referred, propertyType, level, type, clip, inherited);
    }
}

void MCClipList::AddReferenceObject(MCObject* referrer, MCObject* referred, short propertyType, short level,
                                    MCClip::entry_type type, MCFactoryRegistry::clip_reference clip,
                                    ZVTBoolean inherited) {
    const MCClipListWork::InsertCall call{referrer, referred, Deeper(level), type, inherited};
    if (clip & MCFactoryRegistry::clipDepend)
        AddDependency(referrer, referred, propertyType, clip);
    if (clip & MCFactoryRegistry::clipFollow)
        m_pxWork->m_xPending.push_back(call);
    if ((clip & MCFactoryRegistry::clipFollowUnconverted) && m_eMode == modeConvert && m_pxConverter &&
        m_pxConverter->ConvertId(referred->GetId()) == 0)
        m_pxWork->m_xPending.push_back(call);
}

void MCClipList::AddDependency(MCObject* dependent, MCObject* provider, short propertyType,
                               MCFactoryRegistry::clip_reference clip) {
    if (!m_pxDependencies)
        m_pxDependencies =
            std::make_unique<MCClipDependencyList>(static_cast<std::size_t>(m_lSelectionSize) + 1);
    m_pxDependencies->Append(MCClipDependency(dependent, provider, propertyType, clip));
}

void MCClipList::PurgeUnresolved() {
    if (!m_pxDependencies)
        return;
    std::unique_ptr<MCClipDependencyList> current = std::move(m_pxDependencies);
    auto other = std::make_unique<MCClipDependencyList>(current->Length());
    // To a fixed point: a chain loses every link that needs, directly or not, an object left out.
    for (;;) {
        long removed = 0;
        for (std::size_t i = 0; i < current->Length(); ++i) {
            const MCClipDependency& dependency = (*current)[i];
            MCObject* provider = dependency.GetProvider();
            if (m_xEntries.Contains(provider) ||
                (m_pxConverter && m_pxConverter->ConvertId(provider->GetId()) != 0)) {
                other->Append(dependency);
            } else {
                MCClipEntry* entry = nullptr;
                if (m_xEntries.Find(dependency.GetDependent(), entry)) {
                    entry->m_bListed = false;
                    m_xEntries.Remove(dependency.GetDependent());
                }
                ++removed;
            }
        }
        std::swap(current, other);
        other->Clear();
        if (removed == 0)
            break;
    }
}

// --- the writer -------------------------------------------------------------------------------------

const ZVTOrderedVectorT<short>& MCClipInheritance::Of(short objectType) {
    if (m_pxLast && objectType == m_sLastType)
        return *m_pxLast;
    auto found = m_xTypes.find(objectType);
    if (found == m_xTypes.end()) {
        ZVTOrderedVectorT<short> types(c_nInheritableCapacity);
        if (!MCMetaInfo::GetInheritableProperties(objectType, types))
            types.Clear();
        found = m_xTypes.emplace(objectType, std::move(types)).first;
    }
    m_sLastType = objectType;
    m_pxLast = &found->second;
    return found->second;
}

MCClipSaveVisitor::~MCClipSaveVisitor() = default;

void MCClipSaveVisitor::SaveObjectHeader(MCPersObjectHeader& header, MCObject& object) {
    MCClipEntry* entry = m_pxEntry && m_pxEntry->m_pxObject == &object ? m_pxEntry : nullptr;
    if (!entry)
        m_pxEntries->Find(&object, entry);
    if (entry && entry->m_pxOwner)
        header.m_lOwnerId = entry->m_lOwnerId;
    MCPersSaveVisitor::SaveObjectHeader(header, object);
}

void MCClipSaveVisitor::SaveProperties(MCObject& object) {
    MCPersSaveVisitor::SaveProperties(object);
    // An object that leaves its inheritance chain behind takes what it inherits from above the clip along
    // as values of its own.
    const ZVTOrderedVectorT<short>& inheritable = m_pxInheritance->Of(object.GetType());
    for (std::size_t i = 0; i < inheritable.Length(); ++i) {
        const MCProperty* property = InheritedProperty(&object, inheritable[i], m_pxEntries);
        if (!property)
            continue;
        *m_pxStream << static_cast<char>(MCStream::tokenProperty) << property->GetType();
        const_cast<MCProperty*>(property)->SaveTo(*m_pxStream);
    }
}

std::size_t MCClipRecordStore::BeginRecord(long& offset) {
    // Blocks double from 64 KB to 4 MB; a record is far smaller than the headroom kept.
    constexpr std::size_t c_nFirstBlock = std::size_t{64} << 10;
    constexpr std::size_t c_nLargestBlock = std::size_t{4} << 20;
    constexpr std::size_t c_nHeadroom = std::size_t{4} << 10;
    if (m_xBlocks.empty() || m_xBlocks.back().capacity() - m_xBlocks.back().size() < c_nHeadroom) {
        const std::size_t size =
            m_xBlocks.empty() ? c_nFirstBlock : std::min(2 * m_xBlocks.back().capacity(), c_nLargestBlock);
        m_xBlocks.emplace_back();
        m_xBlocks.back().reserve(size);
    }
    offset = Offset();
    return m_xBlocks.size() - 1;
}

std::size_t MCClipRecordStore::Size() const {
    std::size_t size = 0;
    for (const std::string& block : m_xBlocks)
        size += block.size();
    return size;
}

std::streamsize MCClipAppendingBuffer::xsputn(const char* data, std::streamsize count) {
    Tail().append(data, static_cast<std::size_t>(count));
    return count;
}

MCClipAppendingBuffer::int_type MCClipAppendingBuffer::overflow(int_type c) {
    if (!traits_type::eq_int_type(c, traits_type::eof()))
        Tail().push_back(traits_type::to_char_type(c));
    return traits_type::not_eof(c);
}

MCClipGrowingBuffer::pos_type MCClipGrowingBuffer::seekoff(off_type offset, std::ios_base::seekdir way,
                                                           std::ios_base::openmode which) {
    // Only where the writing stands can be asked; the bytes are never rewritten through the stream.
    if (offset != 0 || way == std::ios_base::beg || !(which & std::ios_base::out))
        return pos_type(off_type(-1));
    return pos_type(static_cast<off_type>(m_sBytes.size()));
}

MCCopyStream::MCCopyStream(ZVTHDict<MCObject*, MCClipEntry*>* entries)
    : m_pxStream(std::make_unique<MCStream>(m_xBuffer, ZVTStream::binary)),
      m_pxVisitor(std::make_unique<MCClipSaveVisitor>(*m_pxStream, entries, m_xInheritance)),
      m_pxPreparedStream(std::make_unique<MCStream>(m_xPrepared, ZVTStream::binary)),
      m_pxPreparedVisitor(std::make_unique<MCClipSaveVisitor>(*m_pxPreparedStream, entries, m_xInheritance)) {
}

void MCCopyStream::Prefetch(const MCClipEntry& entry) const {
    if (entry.m_lRecord < 0)
        return;
    const char* record = m_xPrepared.Block(entry.m_nBlock).data() + entry.m_lRecord;
    for (long at = 0; at < entry.m_lRecordEnd - entry.m_lRecord; at += 64)
        __builtin_prefetch(record + at);
}

void MCCopyStream::Reserve(std::size_t entries) {
    // An entry's frame before its prepared record: token, level, id, flag; the head and globals are small.
    constexpr std::size_t c_nFrame = 1 + 2 + 4 + 1;
    constexpr std::size_t c_nHead = 256;
    m_xBuffer.Bytes().reserve(m_xPrepared.Size() + entries * c_nFrame + c_nHead);
}

void MCCopyStream::Prepare(MCClipEntry& entry) {
    MCObject* object = entry.m_pxObject;
    if (!m_bPrepare || m_xInheritance.Of(object->GetType()).Length() > 0)
        return;
    entry.m_nBlock = m_xPrepared.BeginRecord(entry.m_lRecord);
    entry.m_bUndeletable = object->GetFlag(MCItem::itemUndeletable);
    MCSPropertyAccessorT<ZVTString> name{ZVTString("")};
    object->GetProperty(MCCodes::pName, name);
    *m_pxPreparedStream << name.GetValue() << object->GetType();
    // The object token, type and id precede the owner id.
    entry.m_lOwnerAt = m_xPrepared.Offset() + 1 + 2 + 4;
    m_pxPreparedVisitor->SetEntry(&entry);
    m_pxPreparedVisitor->Visit(object);
    m_pxPreparedVisitor->SetEntry(nullptr);
    entry.m_lRecordEnd = m_xPrepared.Offset();
}

MCCopyStream::~MCCopyStream() = default;

void MCCopyStream::WriteHead(MCObject& source) {
    *m_pxStream << static_cast<char>(MCStream::tokenClipHead) << source.GetId() << AddressToken(&source);
    MCObject* root = source.GetPersistenceRoot();
    if (!root)
        MC_THROW_UNEXPECTED(c_xSourceFile);
    Environment().SaveGlobals(*m_pxStream, root);
}

ZVTBoolean MCCopyStream::WriteEntry(MCClipEntry& entry) {
    MCObject* object = entry.m_pxObject;
    // A PostCopy rule may take down an object of the clip; the id tells without touching it.
    if (MCObject::ResolveId(entry.m_lId) != object)
        return true;
    // Where the entry starts, so that the frame of an object its PostCopy rule takes down can go again.
    const std::size_t start = m_xBuffer.Bytes().size();
    const ZVTBoolean markPending = m_bLevelMarkPending;
    if (m_bLevelMarkPending && entry.m_sLevel >= 0) {
        m_bLevelMarkPending = false;
        *m_pxStream << static_cast<char>(MCStream::tokenClipLevel);
    }
    const char token = static_cast<char>(MCStream::tokenClipEntry0 + entry.m_eType);
    if (entry.m_lRecord >= 0) {
        // Prepared during the closure, when the object was at hand; only its owner may have changed, to
        // none too: an entry has no owner only when it is a selected object without a real one.
        *m_pxStream << token << entry.m_sLevel << entry.m_lId << static_cast<char>(entry.m_bUndeletable);
        std::string& prepared = m_xPrepared.Block(entry.m_nBlock);
        const auto owner = static_cast<unsigned long>(entry.m_lOwnerId);
        for (int i = 0; i < 4; ++i)
            prepared[static_cast<std::size_t>(entry.m_lOwnerAt + i)] = static_cast<char>(owner >> (8 * i));
        m_xBuffer.Bytes().append(prepared, static_cast<std::size_t>(entry.m_lRecord),
                                 static_cast<std::size_t>(entry.m_lRecordEnd - entry.m_lRecord));
        return true;
    }
    MCSPropertyAccessorT<ZVTString> name{ZVTString("")};
    object->GetProperty(MCCodes::pName, name);
    const char undeletable = object->GetFlag(MCItem::itemUndeletable) ? 1 : 0;
    *m_pxStream << token << entry.m_sLevel << object->GetId() << undeletable << name.GetValue()
                << object->GetType();

    MCObjectSemContext context(nullptr);
    MCObjectSem* failed = nullptr;
    MCObjectSemReg::FireSemantics(MCObjectSem::PostCopy, object, failed, &context, false);
    if (MCObject::ResolveId(entry.m_lId) != object) {
        // A frame without its record would stop the paste there: the buffer becomes that of a clip
        // without the object, and the level mark, when it was this entry's, waits for the next one.
        m_xBuffer.Bytes().resize(start);
        m_bLevelMarkPending = markPending;
        return true;
    }
    m_pxVisitor->SetEntry(&entry);
    m_pxVisitor->Visit(object);
    m_pxVisitor->SetEntry(nullptr);
    return true;
}

void MCCopyStream::WriteEnd() {
    *m_pxStream << static_cast<char>(MCStream::tokenClipEnd);
    // A refused write leaves a buffer no reader could trust: none is given out.
    if (!m_pxStream->fail() && !m_pxPreparedStream->fail())
        m_sBytes = std::move(m_xBuffer.Bytes());
    m_xBuffer.Bytes().clear();
    m_xPrepared.Clear();
}

// --- the paste --------------------------------------------------------------------------------------

MCClipMemoryBuffer::MCClipMemoryBuffer(const char* data, std::size_t size) {
    char* begin = const_cast<char*>(data);
    setg(begin, begin, begin + size);
}

MCClipMemoryBuffer::pos_type MCClipMemoryBuffer::seekoff(off_type offset, std::ios_base::seekdir way,
                                                         std::ios_base::openmode which) {
    if (!(which & std::ios_base::in))
        return pos_type(off_type(-1));
    off_type base = 0;
    if (way == std::ios_base::cur)
        base = gptr() - eback();
    else if (way == std::ios_base::end)
        base = egptr() - eback();
    const off_type position = base + offset;
    if (position < 0 || position > egptr() - eback())
        return pos_type(off_type(-1));
    setg(eback(), eback() + position, egptr());
    return pos_type(position);
}

MCClipMemoryBuffer::pos_type MCClipMemoryBuffer::seekpos(pos_type position, std::ios_base::openmode which) {
    return seekoff(off_type(position), std::ios_base::beg, which);
}

MCPasteStream::MCPasteStream(MCObject& target, void* buffer, int size, ZVTOrderedVectorT<long>* ids,
                             MCClipIdConverter* converter)
    : m_pxTarget(&target),
      m_lTargetId(target.GetId()),
      m_nBindingEnds(mc_detail::t_nObjectEnds),
      m_nTargetEnds(m_nBindingEnds),
      m_xBuffer(static_cast<const char*>(buffer), buffer && size > 0 ? static_cast<std::size_t>(size) : 0),
      m_pxStream(std::make_unique<MCStream>(m_xBuffer, ZVTStream::binary)),
      m_pxIdSpace(&m_pxStream->GetIdSpace()),
      m_xPlacedOnce(MCIdSpace::HashId, c_nPasteBuckets),
      m_xReferenceOnly(MCIdSpace::HashId, c_nPasteBuckets),
      m_pxIds(ids),
      m_pxConverter(converter),
      m_pxVisitor(std::make_unique<MCPersRestoreVisitor>(*m_pxStream)) {
    if (m_pxIds)
        m_pxIds->Clear();
}

MCPasteStream::~MCPasteStream() = default;

void MCPasteStream::ReadHead() {
    MCStream& stream = *m_pxStream;
    char token = 0;
    long sourceId = 0;
    unsigned long sourceAddress = 0;
    if (!Read(stream, token) || token != MCStream::tokenClipHead || !Read(stream, sourceId) ||
        !Read(stream, sourceAddress)) {
        m_bFailed = true;
        return;
    }
    m_bSamePlace = sourceAddress == AddressToken(m_pxTarget) && sourceId == m_pxTarget->GetId();

    MCUDPMap* map = nullptr;
    while (Read(stream, token)) {
        if (token != MCStream::tokenGlobals) {
            stream.SetPendingToken(token);
            break;
        }
        try {
            Environment().RestoreGlobalToken(token, stream, &map);
        } catch (...) {
            delete map;
            throw;
        }
    }
    if (map) {
        // Adopted at once, so that records discarded or merged before the first new object read their
        // user-defined properties under this model's codes too; the stream owns it from here.
        stream.AdoptUDPMap(map);
        MCFactoryRegistry::RegisterUDPs(*m_pxTarget, map);
    }
}

ZVTBoolean MCPasteStream::ReadFrame(Frame& frame) {
    MCStream& stream = *m_pxStream;
    char token = 0;
    if (!Read(stream, frame.m_sLevel) || !Read(stream, frame.m_lId) || !Read(stream, frame.m_cFlag) ||
        !Read(stream, frame.m_xName) || !Read(stream, frame.m_sType) || !Read(stream, token) ||
        token != MCStream::tokenObject) {
        m_bFailed = true;
        return false;
    }
    return true;
}

void MCPasteStream::ReadPrelude() {
    if (m_bFailed)
        return;
    MCStream& stream = *m_pxStream;
    while (!m_bFailed) {
        char token = 0;
        if (stream.HasPendingToken())
            token = stream.GetPendingToken();
        else if (!Read(stream, token))
            return;
        Frame frame;
        switch (token) {
            case MCStream::tokenClipEntry0:
                if (ReadFrame(frame))
                    CreateFromRecord(-1, nullptr);
                break;
            case MCStream::tokenClipEntry2:
                if (!ReadFrame(frame))
                    break;
                if (m_bSamePlace)
                    DiscardRecord(false, 0);
                else if (frame.m_cFlag != 0)
                    MatchByName(frame.m_lId, frame.m_sType, frame.m_xName);
                else
                    CreateFromRecord(-1, nullptr);
                break;
            case MCStream::tokenClipLevel:
                stream.SetPendingToken(token);
                return;
            default:
                m_bFailed = true;
                return;
        }
    }
}

void MCPasteStream::ReadEntries(ZVTSList<MCObject*>& targets) {
    if (m_bFailed)
        return;
    MCStream& stream = *m_pxStream;
    if (!stream.HasPendingToken() || stream.GetPendingToken() != MCStream::tokenClipLevel) {
        m_bFailed = true;
        return;
    }
    const long start = stream.tellg();
    // What the prelude bound stays bound for every target.
    for (Binding& binding : m_xBindings)
        binding.m_bPass = false;
    // A host's rule may expunge a target of a later pass.
    const std::vector<mc_detail::HeldObject> held = mc_detail::HoldEach(targets);
    for (std::size_t t = 0; t < targets.Entries() && !m_bFailed; ++t) {
        MCObject* perTarget = targets.At(t);
        if (held[t].Gone()) {
            m_bFailed = true;
            break;
        }
        m_lPassTargetId = perTarget ? perTarget->GetId() : 0;
        if (t > 0) {
            // What the last target's pass made is resolved among itself before its ids are let go, so
            // that the next pass binds them to its own objects.
            ResolveCreated();
            std::size_t kept = 0;
            for (Binding& binding : m_xBindings) {
                if (binding.m_bPass && !m_xPlacedOnce.Contains(binding.m_lBufferId)) {
                    m_pxIdSpace->RemoveId(binding.m_lBufferId);
                    m_xReferenceOnly.Remove(binding.m_lBufferId);
                    continue;
                }
                binding.m_bPass = false;
                m_xBindings[kept++] = binding;
            }
            m_xBindings.resize(kept);
            stream.clear();
            stream.seekg(start);
        }
        long barrier = c_lNoBarrier;
        bool ended = false;
        while (!ended && !m_bFailed) {
            char token = 0;
            if (!Read(stream, token))
                break;
            Frame frame;
            switch (token) {
                case MCStream::tokenClipEntry0:
                    if (!ReadFrame(frame))
                        return;
                    if (frame.m_sLevel > barrier || m_xPlacedOnce.Contains(frame.m_lId))
                        DiscardRecord(false, 0, false);
                    else if (frame.m_cFlag != 0)
                        MatchByName(frame.m_lId, frame.m_sType, frame.m_xName);
                    else if (CreateFromRecord(frame.m_sLevel, perTarget))
                        barrier = c_lNoBarrier;
                    else
                        barrier = frame.m_sLevel;
                    break;
                case MCStream::tokenClipEnd:
                    ended = true;
                    break;
                default:
                    m_bFailed = true;
                    return;
            }
        }
    }
}

ZVTBoolean MCPasteStream::CreateFromRecord(long level, MCObject* targetObject) {
    MCStream& stream = *m_pxStream;
    short type = 0;
    long id = 0;
    if (!Read(stream, type) || !Read(stream, id)) {
        m_bFailed = true;
        return false;
    }
    if (m_pxConverter) {
        if (const long converted = m_pxConverter->ConvertId(id)) {
            MCObject* existing = MCObject::ResolveId(converted);
            if (existing)
                return MergeRecord(existing);
            // The converter names an object that is gone: the record is read past and binds nothing.
            long ownerId = 0;
            if (!Read(stream, ownerId)) {
                m_bFailed = true;
                return false;
            }
            DropScratch(ReadScratch());
            return false;
        }
    }
    long ownerId = 0;
    if (!Read(stream, ownerId)) {
        m_bFailed = true;
        return false;
    }
    // An object of the model that a record was discarded for serves the buffer's references, never as an
    // owner: the entries below that record would otherwise land in the model where they were copied from.
    DropGoneBindings();
    MCObject* owner =
        ownerId != 0 && !m_xReferenceOnly.Contains(ownerId) ? m_pxIdSpace->ResolveId(ownerId) : nullptr;
    bool once = false;
    if (owner && level == 0)
        once = true;  // it follows its owner, which came from the buffer
    if (!owner) {
        // A target that a host's rule took down mid-paste stops the paste, as damage does.
        if (!TargetsAlive(targetObject)) {
            m_bFailed = true;
            return false;
        }
        if (level == 0 && targetObject && targetObject != m_pxTarget &&
            MCFactoryRegistry::IsValidOwner(type, targetObject->GetType())) {
            owner = targetObject;
        } else if (MCFactoryRegistry::IsValidOwner(type, m_pxTarget->GetType())) {
            owner = m_pxTarget;
            once = true;
        } else {
            DiscardRecord(true, id, false);
            return false;
        }
    }
    if (level != 0 && m_xPlacedOnce.Contains(ownerId))
        once = true;

    // A property code in an object's place would be made on the owner, which may be an object of the
    // model that a discarded record bound: a buffer never adds a property to what it did not make.
    unsigned long flags = 0;
    if (!MCFactoryRegistry::GetFlags(type, flags) || !(flags & MCFactoryRegistry::flagObject)) {
        m_bFailed = true;
        return false;
    }
    MCClipCreateContext context;
    context.SetFlag(MCFactoryContext::flagPasting, true);
    MCObject* object = dynamic_cast<MCObject*>(MCFactoryRegistry::CreateItem(type, owner, &context, nullptr));
    if (!object) {
        m_bFailed = true;
        return false;
    }
    try {
        m_xCreated.push_back(Created{object, object->GetId(), level, false});
    } catch (...) {
        DropScratch(object);  // the rollback knows only what the list holds
        throw;
    }
    Bind(id, object);
    m_pxVisitor->Visit(object);
    if (!m_pxVisitor->IsRecordComplete()) {
        // Half a record makes no object: it goes before anything has seen it.
        m_pxIdSpace->RemovePointer(id, object);
        m_xBindings.pop_back();
        m_xCreated.pop_back();
        DropScratch(object);
        m_bFailed = true;
        return false;
    }
    // Looked at now, while the record's properties are at hand: most objects hold no reference, and
    // the resolving pass then need not come back to them.
    bool references = false;
    for (MCPropertySetIter properties(object->GetPropertySet()); !references && ++properties;)
        references = properties.GetValue() && properties.GetValue()->IsReference();
    m_xCreated.back().m_bResolved = !references;
    if (once)
        m_xPlacedOnce.Insert(id);
    if (m_pxConverter)
        m_pxConverter->AddConversion(id, object->GetId());
    return true;
}

void MCPasteStream::Bind(long id, MCObject* object) {
    DropGoneBindings();
    m_pxIdSpace->RegisterPointer(id, object);
    m_xBindings.push_back(Binding{id, object, object->GetId(), true});
}

void MCPasteStream::DropGoneBindingsSlow() {
    m_nBindingEnds = mc_detail::t_nObjectEnds;
    std::size_t kept = 0;
    for (const Binding& binding : m_xBindings) {
        if (MCObject::ResolveId(binding.m_lObjectId) != binding.m_pxObject) {
            m_pxIdSpace->RemovePointer(binding.m_lBufferId, binding.m_pxObject);
            m_xReferenceOnly.Remove(binding.m_lBufferId);
            continue;
        }
        m_xBindings[kept++] = binding;
    }
    m_xBindings.resize(kept);
}

ZVTBoolean MCPasteStream::TargetsAlive(MCObject* targetObject) {
    if (mc_detail::t_nObjectEnds == m_nTargetEnds)
        return true;
    if (MCObject::ResolveId(m_lTargetId) != m_pxTarget ||
        (targetObject && MCObject::ResolveId(m_lPassTargetId) != targetObject))
        return false;
    m_nTargetEnds = mc_detail::t_nObjectEnds;
    return true;
}

MCObject* MCPasteStream::ReadScratch() {
    MCObject* scratch = MakeScratch();
    if (!scratch) {
        m_bFailed = true;
        return nullptr;
    }
    m_pxVisitor->SetFlush(true);
    try {
        m_pxVisitor->Visit(scratch);
    } catch (...) {
        DropScratch(scratch);
        throw;
    }
    if (!m_pxVisitor->IsRecordComplete()) {
        DropScratch(scratch);
        m_bFailed = true;
        return nullptr;
    }
    return scratch;
}

void MCPasteStream::DropScratch(MCObject* scratch) {
    if (!scratch)
        return;
    // A silent end runs no host code, so what was known alive before it still is: the checks of the
    // bindings and the targets need not wake for it (a merge or a discard drops a scratch every record).
    const std::uint64_t ends = mc_detail::t_nObjectEnds;
    // Its references hold stored ids at most, never subscriptions; nobody heard of it.
    scratch->SetFlag(MCItem::itemUndeletable, false);
    scratch->SetFlag(MCItem::itemTreeExpunge, true);
    scratch->Expunge(true);
    if (m_nBindingEnds == ends)
        m_nBindingEnds = mc_detail::t_nObjectEnds;
    if (m_nTargetEnds == ends)
        m_nTargetEnds = mc_detail::t_nObjectEnds;
}

void MCPasteStream::DiscardRecord(ZVTBoolean headRead, long id, ZVTBoolean mayOwn) {
    MCStream& stream = *m_pxStream;
    long readId = id;
    if (!headRead) {
        short type = 0;
        long ownerId = 0;
        if (!Read(stream, type) || !Read(stream, readId) || !Read(stream, ownerId)) {
            m_bFailed = true;
            return;
        }
    }
    MCObject* scratch = ReadScratch();
    if (!scratch)
        return;
    DropScratch(scratch);
    if (m_xPlacedOnce.Contains(readId))
        return;
    // A reference in the buffer to this record binds to the object of the running model with this id, or
    // to the one the caller chose.
    // A binding made earlier (an object pasted for this id) stands.
    DropGoneBindings();
    MCObject* standIn = MCObject::ResolveId(id != 0 ? id : readId);
    if (standIn && !m_pxIdSpace->ResolveId(readId)) {
        Bind(readId, standIn);
        if (!mayOwn)
            m_xReferenceOnly.Insert(readId);
    }
}

void MCPasteStream::MatchByName(long id, short type, const ZVTString& name) {
    DropGoneBindings();
    if (m_pxIdSpace->ResolveId(id)) {
        DiscardRecord(false, 0);
        return;
    }
    // Found first and read after: reading the record makes a scratch object, which may be of this type.
    long match = 0;
    ZVTHTableT<MCObject*>* instances = nullptr;
    if (MCFactoryRegistry::GetInstances(type, instances, nullptr) && instances) {
        ZVTHTableIterT<MCObject*> iter(*instances);
        while (match == 0 && ++iter) {
            MCObject* candidate = iter.Key();
            MCSPropertyRawAccessorT<ZVTString> candidateName;
            if (candidate->GetProperty(MCCodes::pName, candidateName) && candidateName.GetValue() == name &&
                candidate->GetOwner(0, MCItem::rttiDerived) == m_pxTarget)
                match = candidate->GetId();
        }
    }
    if (match != 0)
        DiscardRecord(false, match);
    else
        CreateFromRecord(-1, nullptr);
}

ZVTBoolean MCPasteStream::MergeRecord(MCObject* existing) {
    if (!MCObject::GetIdSpace())
        return false;
    MCStream& stream = *m_pxStream;
    long ownerId = 0;
    if (!Read(stream, ownerId)) {
        m_bFailed = true;
        return false;
    }
    MCObject* scratch = ReadScratch();
    if (!scratch)
        return false;
    struct ScratchGuard {
        MCPasteStream* m_pxPaste;
        MCObject* m_pxScratch;
        ~ScratchGuard() { m_pxPaste->DropScratch(m_pxScratch); }
    } guard{this, scratch};

    const long existingId = existing->GetId();
    // A rule may take the object down with any edit; from then on nothing of it is touched.
    auto alive = [&] { return MCObject::ResolveId(existingId) == existing; };
    // The object's own properties go by type and are looked up again at each use: a rule of any edit
    // may remove one.
    auto missing = [&](short type, bool withNulled) {
        auto* own = const_cast<MCProperty*>(existing->FindProperty(type, withNulled));
        if (own && !own->GetFlag(MCItem::itemFlag100))
            existing->NullProperty(own, nullptr);
    };
    MCPropertySortOnType byType;
    MCPropertyListIter mine(scratch, nullptr, &byType);
    std::vector<short> theirs;
    for (MCPropertyListIter own(existing, nullptr, &byType); ++own;)
        theirs.push_back(own.GetValue()->GetType());
    std::size_t next = 0;
    while (++mine) {
        MCProperty* property = mine.GetValue();
        const short type = property->GetType();
        if (!alive())
            return false;
        while (next < theirs.size() && alive() && theirs[next] < type)
            missing(theirs[next++], true);
        if (next < theirs.size() && theirs[next] == type)
            ++next;
        if (type == MCCodes::pId || property->GetFlag(MCItem::itemFlag100) ||
            property->GetFlag(MCItem::itemPreFetch))
            continue;
        if (!alive())
            return false;
        if (property->IsReference()) {
            // The ids name objects of the buffer: they are set once every id of the buffer is bound.
            MergedReference reference{existing, existingId, type, false, {}};
            if (auto* single = dynamic_cast<MCSRef*>(property)) {
                if (!single->GetFlag(MCItem::itemNulled))
                    reference.m_xIds.push_back(StoredId(single->GetValue()));
            } else if (auto* list = dynamic_cast<MCVRef*>(property)) {
                reference.m_bList = true;
                const ZVTSList<MCObject*> stored = list->GetValue();
                for (std::size_t i = 0; i < stored.Entries(); ++i)
                    reference.m_xIds.push_back(StoredId(stored.At(i)));
            }
            m_xMergedReferences.push_back(std::move(reference));
            continue;
        }
        std::unique_ptr<MCPropertyAccessor> accessor(property->CreateAccessor());
        if (!accessor)
            return false;
        if (property->GetFlag(MCItem::itemNulled)) {
            missing(type, false);
            continue;
        }
        accessor->GetPropertyValue(property, scratch);
        existing->SetProperty(type, *accessor, MCPropertyAccessor::accessReplace);
    }
    while (next < theirs.size() && alive())
        missing(theirs[next++], true);
    if (alive() && m_pxIds)
        m_pxIds->Append(existingId);
    return true;
}

void MCPasteStream::Prefetch(std::size_t index) const {
    // Only objects that still live: the id space answers without touching the object.
    const std::size_t far = index + c_nObjectsAhead, near = index + c_nPropertiesAhead;
    if (far < m_xCreated.size() && MCObject::ResolveId(m_xCreated[far].m_lId) == m_xCreated[far].m_pxObject)
        mc_detail::PrefetchObject(m_xCreated[far].m_pxObject);
    if (near < m_xCreated.size() &&
        MCObject::ResolveId(m_xCreated[near].m_lId) == m_xCreated[near].m_pxObject)
        PrefetchProperties(m_xCreated[near].m_pxObject);
}

void MCPasteStream::ResolveCreated() {
    // Resolving runs no host code: one look at the bindings serves the whole pass.
    DropGoneBindings();
    for (Created& created : m_xCreated) {
        if (created.m_bResolved)
            continue;
        created.m_bResolved = true;
        if (MCObject::ResolveId(created.m_lId) == created.m_pxObject)
            created.m_pxObject->ResolveIds(*m_pxIdSpace);
    }
}

void MCPasteStream::SetMergedReferences() {
    for (MergedReference& reference : m_xMergedReferences) {
        if (MCObject::ResolveId(reference.m_lObjectId) != reference.m_pxObject)
            continue;
        // The rules of the reference set before may have expunged an object the buffer bound.
        DropGoneBindings();
        ZVTSList<MCObject*> targets;
        for (long id : reference.m_xIds) {
            // An id the buffer did not bind may name an object the converter knows, one merged itself.
            MCObject* target = id != 0 ? m_pxIdSpace->ResolveId(id) : nullptr;
            if (!target && id != 0 && m_pxConverter)
                if (const long converted = m_pxConverter->ConvertId(id))
                    target = MCObject::ResolveId(converted);
            if (target)
                targets.Append(target);
        }
        if (reference.m_bList) {
            MCVRefAccessor accessor(&targets);
            reference.m_pxObject->SetProperty(reference.m_sType, accessor, MCPropertyAccessor::accessReplace);
        } else if (targets.Entries() == 0) {
            MCSRefAccessor accessor;
            reference.m_pxObject->NullProperty(reference.m_sType, accessor);
        } else {
            MCSRefAccessor accessor(targets.At(0));
            reference.m_pxObject->SetProperty(reference.m_sType, accessor, MCPropertyAccessor::accessReplace);
        }
    }
    m_xMergedReferences.clear();
}

void MCPasteStream::Resolve() {
    ResolveCreated();
    for (const Created& created : m_xCreated) {
        if (created.m_lLevel == 0 && m_pxIds && MCObject::ResolveId(created.m_lId) == created.m_pxObject)
            m_pxIds->Append(created.m_lId);
    }
}

void MCPasteStream::Finish() {
    // Every reference is resolved before the first rule runs.
    SetMergedReferences();
    MCPasteObjectContext objectContext;
    MCPastePropertyContext propertyContext;
    for (std::size_t i = 0; i < m_xCreated.size(); ++i) {
        const Created& created = m_xCreated[i];
        // A rule of an object pasted earlier may have taken this one down.
        if (MCObject::ResolveId(created.m_lId) != created.m_pxObject)
            continue;
        Prefetch(i);
        MCObject* object = created.m_pxObject;
        objectContext.SetLevel(created.m_lLevel);
        propertyContext.SetLevel(created.m_lLevel);
        MCObjectSem* failed = nullptr;
        MCObjectSemReg::FireSemantics(MCObjectSem::PostPaste, object, failed, &objectContext, false);
        if (MCObject::ResolveId(created.m_lId) != object)
            continue;
        // A property's rule may expunge its object, saying so or not: the walk of its properties ends there.
        const mc_detail::HeldObject held(object);
        MCPropertyListIter properties(object, nullptr, nullptr);
        while (++properties) {
            MCProperty* property = properties.GetValue();
            const MCPropertySemantic::result answer = MCPropertySemanticRegistry::FireSemantics(
                MCPropertySemantic::PostPaste, property->GetType(), object, property, &propertyContext);
            if (answer == MCPropertySemantic::resultObjectDestroyed || held.Gone())
                break;
        }
    }
}

void MCPasteStream::Rollback() {
    // Objects of an earlier target's pass hold bound references and so subscriptions on their targets:
    // those go first, raw, so that the silent expunge below leaves no subscription behind.
    for (const Created& created : m_xCreated) {
        if (!created.m_bResolved || MCObject::ResolveId(created.m_lId) != created.m_pxObject)
            continue;
        MCPropertySetIter properties(created.m_pxObject->GetPropertySet());
        while (++properties) {
            MCProperty* property = properties.GetValue();
            if (!property || !property->IsReference() || property->GetFlag(MCItem::itemNulled))
                continue;
            std::unique_ptr<MCPropertyAccessor> raw(property->CreateRawAccessor());
            if (raw)
                created.m_pxObject->NullProperty(property, raw.get());
        }
    }
    // Youngest first: an object made later may be owned by one made earlier, never the other way.
    for (auto it = m_xCreated.rbegin(); it != m_xCreated.rend(); ++it) {
        if (MCObject::ResolveId(it->m_lId) != it->m_pxObject)
            continue;
        DropScratch(it->m_pxObject);
    }
    m_xCreated.clear();
    m_xMergedReferences.clear();
}

// --- the paste form ---------------------------------------------------------------------------------

MCClipList::MCClipList(ZVTSList<MCObject*>& targets, MCObject& target, void* buffer, int size,
                       ZVTOrderedVectorT<long>* ids, MCClipIdConverter* converter)
    : m_eMode(modeCopy),
      m_xEntries(MCFactoryRegistry::HashPointer, c_nPasteBuckets),
      m_lSelectionSize(0),
      m_pxConverter(converter) {
    MCPasteStream stream(target, buffer, size, ids, converter);
    try {
        stream.ReadHead();
        stream.ReadPrelude();
        stream.ReadEntries(targets);
        stream.Resolve();
    } catch (...) {
        stream.Rollback();
        throw;
    }
    stream.Finish();
}
