#include "ModelCore/ZVFWMC/MCPersistence.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCDepthFirstWalker.h"
#include "ModelCore/ZVFWMC/MCEndsPrivate.h"
#include "ModelCore/ZVFWMC/MCEnvironment.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCIdSpace.h"
#include "ModelCore/ZVFWMC/MCObject.h"
#include "ModelCore/ZVFWMC/MCObjectFilters.h"
#include "ModelCore/ZVFWMC/MCProperty.h"
#include "ModelCore/ZVFWMC/MCPropertyAccessor.h"
#include "ModelCore/ZVFWMC/MCPropertySemantics.h"
#include "ModelCore/ZVFWMC/MCStreams.h"
#include "ModelCore/ZVFWMC/MCUDPMap.h"
#include "ModelCore/ZVFWMC/MCVisitorAgent.h"
#include "platform/HUB.h"

namespace {

// Lists in `objects` only those of `held` that are still there.
void KeepLiving(ZVTSList<MCObject*>& objects, std::vector<mc_detail::HeldObject>& held) {
    objects.Clear();
    for (mc_detail::HeldObject& each : held) {
        if (MCObject* object = each.Get())
            objects.Append(object);
    }
}

const ZVTString c_xSourceFile("ModelCore/ZVFWMC/MCPersistence");

// The version text holds up to four numbers; only the first two are the file format's.
const int c_nVersionFields = 4;

long FieldValue(const std::string& field) {
    // atol's reading (leading number, 0 for none) without its undefined overflow.
    return std::strtol(field.c_str(), nullptr, 10);
}

// A read that fails leaves its target untouched, so every read is checked before its value is judged.
template <class T>
bool Read(MCStream& stream, T& value) {
    stream >> value;
    return !stream.fail();
}

// itemTreeExpunge and itemExpunging describe a running expunge, never a stored state.
const unsigned short c_uStoredFlagsMask = 0x3FFF;

// The global section goes through the host's environment; without one there is no way to read or write it.
MCEnvironment& Environment() {
    MCEnvironment* environment = MCEnvironment::GetInstance();
    if (!environment)
        MC_THROW_UNEXPECTED(c_xSourceFile);
    return *environment;
}

}  // namespace

const char* const MCPersHeader::m_pcHeaderPrefix = "MdlCore";

MCPersHeader::MCPersHeader() : m_lFileMajorVersion(0), m_lFileMinorVersion(0) {
    HUBProductIdent* ident = HUBProductIdent::GetProductIdent();
    if (!ident)
        MC_THROW_UNEXPECTED(c_xSourceFile);
    m_xCompanyCode = ident->GetCompanyName();
    m_xProductCode = ident->GetProductName();
    m_xProductVersion = ident->GetVersionName();

    std::string fields[c_nVersionFields];
    int field = 0;
    for (char c : ident->GetFileFormatVersion().str()) {
        if (c == ' ')
            continue;
        if (c == ',') {
            // Text beyond the fourth number has no field to go to; it is a slip of the host's set-up.
            if (++field == c_nVersionFields)
                break;
            continue;
        }
        fields[field] += c;
    }
    m_lFileMajorVersion = FieldValue(fields[0]);
    m_lFileMinorVersion = FieldValue(fields[1]);
}

MCPersHeader::MCPersHeader(long major, long minor, ZVTString company, ZVTString product, ZVTString version)
    : m_lFileMajorVersion(major),
      m_lFileMinorVersion(minor),
      m_xCompanyCode(std::move(company)),
      m_xProductCode(std::move(product)),
      m_xProductVersion(std::move(version)) {}

MCPersHeader::result MCPersHeader::SaveTo(MCStream& stream) {
    try {
        const size_t prefixLength = std::strlen(m_pcHeaderPrefix) + 1;
        for (size_t i = 0; i < prefixLength; ++i)
            stream << m_pcHeaderPrefix[i];
        stream << m_lFileMajorVersion << m_lFileMinorVersion;
        stream << m_xCompanyCode << m_xProductCode << m_xProductVersion;
        // The stream refuses rather than throws; a refused write is as much a failure as an exception.
        if (stream.fail())
            return resultStreamFailed;
        return resultOk;
    } catch (...) {
        return resultStreamFailed;
    }
}

MCPersHeader::result MCPersHeader::RestoreFrom(MCStream& stream) {
    try {
        const size_t prefixLength = std::strlen(m_pcHeaderPrefix) + 1;
        for (size_t i = 0; i < prefixLength; ++i) {
            char c = 0;
            if (!Read(stream, c))
                return resultStreamFailed;
            if (c != m_pcHeaderPrefix[i])
                return resultBadPrefix;
        }

        // Signed, and each number against its own limit: a lower major does not excuse a newer minor.
        long major = 0;
        if (!Read(stream, major))
            return resultStreamFailed;
        if (major > m_lFileMajorVersion)
            return resultNewerMajor;
        m_lFileMajorVersion = major;

        long minor = 0;
        if (!Read(stream, minor))
            return resultStreamFailed;
        if (minor > m_lFileMinorVersion)
            return resultNewerMinor;
        m_lFileMinorVersion = minor;

        ZVTString company;
        if (!Read(stream, company))
            return resultStreamFailed;
        if (company != m_xCompanyCode)
            return resultOtherCompany;

        ZVTString product;
        if (!Read(stream, product))
            return resultStreamFailed;
        if (product != m_xProductCode)
            return resultOtherProduct;

        ZVTString version;
        if (!Read(stream, version))
            return resultStreamFailed;
        m_xProductVersion = version;
        return resultOk;
    } catch (...) {
        return resultStreamFailed;
    }
}

// --- contexts ---------------------------------------------------------------------------------------

MCPersFactoryContext::~MCPersFactoryContext() = default;

ZVTBoolean MCPersFactoryContext::SemanticsNeeded() {
    return false;
}

long MCPersFactoryContext::RequestId() {
    const long id = m_lRequestedId;
    m_lRequestedId = 0;
    return id;
}

MCPersSemanticContext::~MCPersSemanticContext() = default;

ZVTBoolean MCPersSemanticContext::PropsExist() const {
    return true;
}

// --- save -------------------------------------------------------------------------------------------

MCPersSaveVisitor::~MCPersSaveVisitor() = default;

void MCPersSaveVisitor::Visit(MCObject* object) {
    if (!object)
        throw MCPersExBadTree();
    *m_pxStream << static_cast<char>(MCStream::tokenObject);
    MCPersObjectHeader header;
    header.m_sType = object->GetType();
    header.m_lId = object->GetId();
    const MCObject* owner = object->GetOwner(0, MCItem::rttiDerived);
    header.m_lOwnerId = owner ? owner->GetId() : 0;
    header.m_usFlags = static_cast<unsigned short>(object->GetFlags() & c_uStoredFlagsMask);
    SaveObjectHeader(header, *object);
    SaveProperties(*object);
    *m_pxStream << static_cast<char>(MCStream::tokenObjectEnd);
}

void MCPersSaveVisitor::SaveObjectHeader(MCPersObjectHeader& header, MCObject& /*object*/) {
    *m_pxStream << header.m_sType << header.m_lId << header.m_lOwnerId << header.m_usFlags;
}

void MCPersSaveVisitor::SaveProperties(MCObject& object) {
    MCPropertyListIter iter(&object, nullptr, nullptr);
    while (++iter) {
        MCProperty* property = iter.GetValue();
        *m_pxStream << static_cast<char>(MCStream::tokenProperty);
        SaveProperty(property->GetType(), *property, object);
    }
}

void MCPersSaveVisitor::SaveProperty(short type, MCProperty& property, MCObject& /*object*/) {
    *m_pxStream << type;
    property.SaveTo(*m_pxStream);
}

// --- restore ----------------------------------------------------------------------------------------

MCPersRestoreVisitor::~MCPersRestoreVisitor() = default;

void MCPersRestoreVisitor::Visit(MCObject* object) {
    const ZVTBoolean flush = m_bFlush;
    m_bFlush = false;
    m_bRecordComplete = false;
    if (!object)
        throw MCPersExBadTree();

    MCStream& stream = *m_pxStream;
    unsigned short flags = 0;
    if (!Read(stream, flags))
        return;
    // A damaged file must not start the object off as being expunged.
    object->SetFlagsRaw(static_cast<unsigned short>(flags & c_uStoredFlagsMask));

    while (!stream.eof()) {
        char token = 0;
        if (!Read(stream, token))
            break;
        if (token != MCStream::tokenProperty) {
            m_bRecordComplete = token == MCStream::tokenObjectEnd;
            break;
        }
        short type = 0;
        if (!Read(stream, type))
            break;
        const long runtimeId = object->GetId();
        const bool isId = type == MCCodes::pId;
        if (type < 0)
            type = stream.TranslateUDPType(type);

        MCProperty* property = const_cast<MCProperty*>(object->FindProperty(type, true));
        if (!property) {
            MCItem* item = MCFactoryRegistry::CreateItem(type, object, nullptr, nullptr);
            // A property is made into the object's set, where finding it is cheaper than the cast; the
            // cast answers for anything made elsewhere.
            MCProperty* entered = nullptr;
            property =
                object->GetPropertySet().FindValue(type, entered) && static_cast<MCItem*>(entered) == item
                    ? entered
                    : dynamic_cast<MCProperty*>(item);
            // An object type in a property's place was made as an ownee; the tree disposes of it.
            if (!property)
                MC_THROW_UNEXPECTED(c_xSourceFile);
        }
        property->RestoreFrom(stream);

        if (isId) {
            // The stored id lives on only in the stream's id space.
            auto* idProperty = mc_detail::PropertyCast<MCSPropertyT<long>>(property);
            if (!flush)
                object->SetId(runtimeId);
            else if (idProperty)
                idProperty->SetValue(runtimeId);
        }
    }
}

MCPersController::~MCPersController() = default;

MCPersController::result MCPersController::SaveTo(MCStream& stream, MCObject* object, MCPersHeader& header) {
    if (header.SaveTo(stream) != MCPersHeader::resultOk)
        return resultHeadNotWritten;
    MCObject* root = object ? object->GetPersistenceRoot() : nullptr;
    if (!root)
        MC_THROW_UNEXPECTED(c_xSourceFile);
    Environment().SaveGlobals(stream, root);
    m_pxSaveStream = &stream;

    MCPersSaveVisitor visitor(stream);
    MCDepthFirstWalker walker(object, nullptr);
    MCVisitorAgent agent(walker, visitor);
    agent.Execute();
    return resultOk;
}

MCPersController::result MCPersController::RestoreFrom(MCStream& stream, MCObject*& object,
                                                       MCPersHeader& header) {
    char token = 0;
    MCObject* root = nullptr;
    MCUDPMap* udpMap = nullptr;
    m_pxRestoreStream = &stream;
    m_pxIdSpace = &stream.GetIdSpace();

    // The map is ours until the stream adopts it.
    struct MapGuard {
        MCStream& stream;
        MCUDPMap*& map;
        ~MapGuard() {
            if (map && stream.GetUDPMap() != map)
                delete map;
        }
    } mapGuard{stream, udpMap};

    switch (header.RestoreFrom(stream)) {
        case MCPersHeader::resultOk:
            break;
        case MCPersHeader::resultBadPrefix:
            return resultBadPrefix;
        case MCPersHeader::resultNewerMajor:
            return resultNewerMajor;
        case MCPersHeader::resultNewerMinor:
            return resultNewerMinor;
        case MCPersHeader::resultOtherCompany:
            return resultOtherCompany;
        case MCPersHeader::resultOtherProduct:
            return resultOtherProduct;
        default:
            MC_THROW_UNEXPECTED(c_xSourceFile);
    }

    MCPersRestoreVisitor visitor(stream);
    while (!stream.eof() && token != MCStream::tokenEndMark) {
        if (!Read(stream, token))
            break;
        switch (token) {
            case MCStream::tokenEndMark:
                break;
            case MCStream::tokenObject: {
                MCObject* created = CreateObject(visitor, root ? nullptr : udpMap);
                if (!created)  // the header was cut off
                    token = MCStream::tokenEndMark;
                else if (!root)
                    root = created;
                break;
            }
            case MCStream::tokenGlobals:
                Environment().RestoreGlobalToken(token, stream, &udpMap);
                break;
            default:
                DropPartialTree(root);
                return resultUnknownToken;
        }
    }

    // Every reference resolves before any rule runs, so a rule may follow references freely.
    const size_t count = m_xCreatedObjects.Entries();
    for (size_t i = 0; i < count; ++i)
        m_xCreatedObjects.At(i)->ResolveIds(*m_pxIdSpace);
    // A rule may expunge its object, one not yet fired or one fired before.
    std::vector<mc_detail::HeldObject> made = mc_detail::HoldEach(m_xCreatedObjects);
    mc_detail::HeldObject heldRoot(root);
    const std::uint64_t endsBefore = mc_detail::t_nObjectEnds;
    for (mc_detail::HeldObject& entry : made) {
        MCObject* created = entry.Get();
        if (!created)
            continue;
        MCObjectSem* failed = nullptr;
        MCObjectSemReg::FireSemantics(MCObjectSem::CalculateData, created, failed, nullptr, false);
        if (entry.Gone())
            continue;
        // Asked after the object rules, which may register property rules: most types have none for this
        // mode, and a firing that reaches none costs a look-up per property. With none, no host code runs
        // in the loop that could register one.
        if (!MCPropertySemanticRegistry::MayFire(MCPropertySemantic::PostCalculateData, created))
            continue;
        // The set's own cursor walks the live set as an unfiltered list walk does, without its counted
        // implementation on the heap.
        MCPropertySetIter properties(created->GetPropertySet());
        while (++properties) {
            MCProperty* property = properties.GetValue();
            const auto answer = MCPropertySemanticRegistry::FireSemantics(
                MCPropertySemantic::PostCalculateData, property->GetType(), created, property, nullptr);
            if (answer == MCPropertySemantic::resultObjectDestroyed || entry.Gone())
                break;
        }
    }
    if (mc_detail::t_nObjectEnds != endsBefore)
        KeepLiving(m_xCreatedObjects, made);
    // A root a rule took is no root to give.
    object = heldRoot.Get();
    return resultOk;
}

void MCPersController::DropPartialTree(MCObject* root) {
    if (!root)
        return;
    // The registry keeps a root among the holders of its user-defined properties until told, and a later
    // root at this address would hold them too; the host never sees this root, so it cannot tell.
    MCFactoryRegistry::RemoveUDPs(root);
    // Ids tell afterwards which objects the expunge took, without touching freed memory; objects that
    // found no owner in the file survive it and stay listed for the host.
    std::vector<mc_detail::HeldObject> made = mc_detail::HoldEach(m_xCreatedObjects);
    root->Expunge(true);
    KeepLiving(m_xCreatedObjects, made);
}

MCObject* MCPersController::CreateObject(MCPersRestoreVisitor& visitor, MCUDPMap* map) {
    MCStream& stream = *m_pxRestoreStream;
    short type = 0;
    long id = 0;
    long ownerId = 0;
    if (!Read(stream, type) || !Read(stream, id) || !Read(stream, ownerId))
        return nullptr;
    MCObject* owner = m_pxIdSpace->ResolveId(ownerId);

    m_xFactoryContext.Reset();
    MCItem* item = nullptr;
    try {
        item = MCFactoryRegistry::CreateItem(type, owner, &m_xFactoryContext, nullptr);
    } catch (...) {
        throw MCPersExObjectCreation(type);
    }
    // A new object is its owner's youngest ownee, and finding it there is cheaper than the cross cast;
    // the cast answers for the root and for anything a host's constructor added after it.
    MCObject* object = owner ? owner->GetLastOwnee() : nullptr;
    if (!object || static_cast<MCItem*>(object) != item)
        object = dynamic_cast<MCObject*>(item);
    // A property code in an object's place was entered into the owner's set; the owner disposes of it.
    if (!object)
        throw MCPersExObjectCreation(type);

    try {
        m_xCreatedObjects.Append(object);
    } catch (...) {
        // Unlisted, an object of no owner in the file would be out of the host's reach.
        if (!owner)
            mc_detail::ExpungeOrphan(*object);
        throw;
    }
    m_pxIdSpace->RegisterPointer(id, object);

    if (map) {
        MCObject* root = object->GetPersistenceRoot();
        if (!stream.GetUDPMap() && root) {
            MCFactoryRegistry::RegisterUDPs(*root, map);
            stream.AdoptUDPMap(map);
        }
        MCMapToIterT<short, short> iter(*map);
        while (++iter)
            MCFactoryRegistry::ValidatePersistenceUnit(iter.To(), root);
    }

    visitor.Visit(object);
    return object;
}

// ---- Record chain

MCRecMgrState::MCRecMgrState()
    : m_lCurrent(MCRecMgr::c_nNoPos),
      m_lPrevious(MCRecMgr::c_nNoPos),
      m_lNext(MCRecMgr::c_nNoPos),
      m_lGetPosition(MCRecMgr::c_nNoPos),
      m_lPutPosition(MCRecMgr::c_nNoPos) {}

MCRecMgrState::MCRecMgrState(MCRecMgr& manager)
    : m_lCurrent(manager.m_lCurrent),
      m_lPrevious(manager.m_lPrevious),
      m_lNext(manager.m_lNext),
      m_lGetPosition(manager.m_pxStream->tellg()),
      m_lPutPosition(manager.m_pxStream->tellp()) {}

int MCRecMgrState::operator==(const MCRecMgrState& other) const {
    return m_lCurrent == other.m_lCurrent && m_lPrevious == other.m_lPrevious && m_lNext == other.m_lNext &&
           m_lGetPosition == other.m_lGetPosition && m_lPutPosition == other.m_lPutPosition;
}

int MCRecMgrState::operator!=(const MCRecMgrState& other) const {
    return !(*this == other);
}

MCRecMgr::MCRecMgr(MCStream& stream)
    : m_pxStream(&stream),
      m_lFirst(c_nNoPos),
      m_lPrevious(c_nNoPos),
      m_lNext(c_nNoPos),
      m_lLast(c_nNoPos),
      m_lCurrent(c_nNoPos),
      m_lWalkStart(c_nNoPos),
      m_eWalk(walkNone) {
    ReadRec(0);
    while (MoveNext() == eOk) {
    }
    ReadRec(c_nNoPos);
}

MCRecMgr::~MCRecMgr() = default;

MCRecMgr::eResult MCRecMgr::WriteRec() {
    const MCRecMgrState saved = GetState();
    const long previousId = m_lCurrent;
    const long newId = saved.m_lPutPosition;
    if (saved.m_lGetPosition == c_nNoPos || newId == c_nNoPos)
        return Fail(saved, eStreamFailed);

    // The previous head is read before anything is written, so that bytes which are no longer a record
    // are never overwritten with one.
    char token = 0;
    long previousOfPrevious = c_nNoPos;
    long unusedNext = c_nNoPos;
    if (previousId != c_nNoPos) {
        if (newId < previousId + c_nHeadSize && newId + c_nHeadSize > previousId)
            return Fail(saved, eBadRecord);
        m_pxStream->seekg(previousId);
        *m_pxStream >> token;
        if (!StreamOk())
            return Fail(saved, eStreamFailed);
        if (token != MCStream::tokenRecord)
            return Fail(saved, eBadRecord);
        *m_pxStream >> previousOfPrevious >> unusedNext;
        if (!StreamOk())
            return Fail(saved, eStreamFailed);
    }

    m_pxStream->seekp(newId);
    *m_pxStream << static_cast<char>(MCStream::tokenRecord) << previousId << c_nNoPos;
    if (!StreamOk())
        return Fail(saved, eStreamFailed);
    const long end = m_pxStream->tellp();
    if (previousId != c_nNoPos) {
        m_pxStream->seekp(previousId);
        *m_pxStream << token << previousOfPrevious << newId;
    }
    m_pxStream->seekp(end);
    m_pxStream->seekg(end);
    // A failed relink leaves the previous record as it was, ending the chain there; the unlinked head is
    // overwritten by the next write, which starts at the same put position.
    if (!StreamOk())
        return Fail(saved, eStreamFailed);

    if (m_lFirst == c_nNoPos)
        m_lFirst = newId;
    m_lCurrent = newId;
    m_lPrevious = previousId;
    m_lNext = c_nNoPos;
    m_lLast = newId;
    m_lWalkStart = newId;
    m_eWalk = walkNone;
    return eOk;
}

MCRecMgr::eResult MCRecMgr::MoveFirst() {
    return ReadRec(m_lFirst);
}

MCRecMgr::eResult MCRecMgr::MoveLast() {
    return ReadRec(m_lLast);
}

MCRecMgr::eResult MCRecMgr::MoveNext() {
    if (eof())
        return eAtEnd;
    return Step(m_lNext, walkForward);
}

MCRecMgr::eResult MCRecMgr::MovePrev() {
    return Step(m_lPrevious, walkBackward);
}

MCRecMgr::eResult MCRecMgr::MoveToRecId(long id) {
    return ReadRec(id);
}

MCRecMgrState MCRecMgr::GetState() {
    return MCRecMgrState(*this);
}

void MCRecMgr::SetState(MCRecMgrState& state) {
    if (GetState() == state)
        return;
    const eResult result = ReadRec(state.m_lCurrent);
    if (result != eOk && result != eNoRecord)
        return;
    Restore(state);
}

MCRecMgr::eResult MCRecMgr::ReadRec(long id) {
    if (id == c_nNoPos) {
        m_lCurrent = c_nNoPos;
        m_lPrevious = c_nNoPos;
        m_lNext = m_lLast != c_nNoPos ? 0 : c_nNoPos;
        m_pxStream->seekp(0);
        m_pxStream->seekg(0);
        m_lWalkStart = c_nNoPos;
        m_eWalk = walkNone;
        return eNoRecord;
    }

    const MCRecMgrState saved = GetState();
    // Without both positions a failure could not put the stream back.
    if (saved.m_lGetPosition == c_nNoPos || saved.m_lPutPosition == c_nNoPos)
        return Fail(saved, eStreamFailed);
    m_pxStream->seekg(id);
    char token = 0;
    *m_pxStream >> token;
    if (!StreamOk())
        return Fail(saved, eStreamFailed);
    if (token != MCStream::tokenRecord)
        return Fail(saved, eBadRecord);
    long previous = c_nNoPos;
    long next = c_nNoPos;
    *m_pxStream >> previous >> next;
    m_pxStream->seekp(m_pxStream->tellg());
    if (!StreamOk())
        return Fail(saved, eStreamFailed);

    m_lCurrent = id;
    m_lPrevious = previous;
    m_lNext = next;
    if (m_lFirst == c_nNoPos || id < m_lFirst)
        m_lFirst = id;
    // Signed, so the first record read replaces c_nNoPos.
    if (id > m_lLast)
        m_lLast = id;
    m_lWalkStart = id;
    m_eWalk = walkNone;
    return eOk;
}

int MCRecMgr::StreamOk() {
    m_pxStream->flush();
    return !m_pxStream->fail() && !m_pxStream->bad() && m_pxStream->tellp() != c_nNoPos;
}

MCRecMgr::eResult MCRecMgr::Step(long id, walk_type direction) {
    const MCRecMgrState saved = GetState();
    if (saved.m_lGetPosition == c_nNoPos || saved.m_lPutPosition == c_nNoPos)
        return Fail(saved, eStreamFailed);
    const long from = m_lCurrent;
    const long first = m_lFirst;
    const long last = m_lLast;
    const long walkStart = m_lWalkStart;
    const walk_type walk = m_eWalk;
    const long start = walk == direction ? walkStart : from;

    const eResult result = ReadRec(id);
    if (result != eOk)
        return result;
    // Every record of a walk links back to the one before it, so a walk can come round only to where it
    // began: with these two checks it visits each record once at most.
    const long back = direction == walkForward ? m_lPrevious : m_lNext;
    if (back != from || id == start) {
        m_lFirst = first;
        m_lLast = last;
        m_lWalkStart = walkStart;
        m_eWalk = walk;
        Restore(saved);
        return eBadRecord;
    }
    m_lWalkStart = start;
    m_eWalk = direction;
    return eOk;
}

MCRecMgr::eResult MCRecMgr::Fail(const MCRecMgrState& saved, eResult result) {
    m_pxStream->clear(0);
    Restore(saved);
    return result;
}

void MCRecMgr::Restore(const MCRecMgrState& state) {
    m_lCurrent = state.m_lCurrent;
    m_lPrevious = state.m_lPrevious;
    m_lNext = state.m_lNext;
    if (state.m_lGetPosition != c_nNoPos)
        m_pxStream->seekg(state.m_lGetPosition);
    if (state.m_lPutPosition != c_nNoPos)
        m_pxStream->seekp(state.m_lPutPosition);
}
