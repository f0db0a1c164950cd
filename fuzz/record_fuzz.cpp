// Moves along a record chain read from arbitrary bytes, and along one built from them. Whatever the bytes,
// a walk visits each record once at most, so it ends within as many steps as there are bytes; each record
// it reaches lies whole in the stream and links back to the one it came from; a failed move changes
// nothing; a move to any position answers what the bytes there say; reading writes nothing; the records a
// walk reads, written as a new chain, read back the same; and a chain built from the input (one payload
// per length byte) reads the payloads back both ways, also after a saved state is set again.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "ModelCore/ZVFWMC/MCPersistence.h"
#include "ModelCore/ZVFWMC/MCStreams.h"

namespace {

using R = MCRecMgr;

void Require(bool holds) {
    if (!holds)
        std::abort();
}

// Positions tried one by one with MoveToRecId, and those walks start from: bounds the work per input.
constexpr long c_nMaxProbes = 512;
constexpr int c_nMaxProbeWalks = 16;
// The payloads of a built chain: a length byte modulo this, then that many bytes.
constexpr int c_nPayloadLengths = 16;

long LinkAt(const std::string& bytes, long at) {
    unsigned long bits = 0;
    for (int i = 0; i < 4; ++i)
        bits |= static_cast<unsigned long>(static_cast<unsigned char>(bytes[at + i])) << (8 * i);
    return static_cast<long>(static_cast<std::int32_t>(bits));
}

// Steps from where the manager stands until a step fails, checking each step against the bytes; the ids.
std::vector<long> CheckedWalk(R& manager, const std::string& bytes, bool forward) {
    const long size = static_cast<long>(bytes.size());
    std::vector<long> ids;
    std::set<long> seen{manager.GetCurrRecId()};
    for (;;) {
        const long from = manager.GetCurrRecId();
        const MCRecMgrState before = manager.GetState();
        const R::eResult result = forward ? manager.MoveNext() : manager.MovePrev();
        if (result != R::eOk) {
            Require(result == R::eAtEnd || result == R::eNoRecord || manager.GetState() == before);
            return ids;
        }
        const long id = manager.GetCurrRecId();
        Require(id >= 0 && id + R::c_nHeadSize <= size && bytes[id] == MCStream::tokenRecord);
        Require(LinkAt(bytes, id + (forward ? 1 : 5)) == from);
        Require(seen.insert(id).second && static_cast<long>(ids.size()) < size);
        ids.push_back(id);
    }
}

R::eResult ExpectedAt(const std::string& bytes, long id) {
    const long size = static_cast<long>(bytes.size());
    if (id == R::c_nNoPos)
        return R::eNoRecord;
    if (id < 0 || id >= size)
        return R::eStreamFailed;
    if (bytes[id] != MCStream::tokenRecord)
        return R::eBadRecord;
    return id + R::c_nHeadSize <= size ? R::eOk : R::eStreamFailed;
}

void CheckRead(const std::string& bytes) {
    std::stringstream medium(bytes);
    MCStream stream(medium, ZVTStream::binary);
    R manager(stream);
    // The constructor took the same walk: its last record is the walk's highest.
    const std::vector<long> chain = CheckedWalk(manager, bytes, true);
    if (!chain.empty()) {
        Require(manager.MoveFirst() == R::eOk && manager.GetCurrRecId() == 0);
        Require(manager.MoveLast() == R::eOk &&
                manager.GetCurrRecId() == *std::max_element(chain.begin(), chain.end()));
    }
    CheckedWalk(manager, bytes, false);

    int walks = 0;
    for (long id = -2; id < std::min<long>(static_cast<long>(bytes.size()) + 2, c_nMaxProbes); ++id) {
        const R::eResult result = manager.MoveToRecId(id);
        Require(result == ExpectedAt(bytes, id));
        if (result == R::eOk && walks++ < c_nMaxProbeWalks) {
            CheckedWalk(manager, bytes, id % 2 == 0);
            CheckedWalk(manager, bytes, id % 2 != 0);
        }
    }
    Require(medium.str() == bytes);
}

// The records the walk from position 0 reaches, in walk order, each with its payload: the bytes from its
// head to the next record of the walk in the stream, or to the end (none where heads overlap).
std::vector<std::string> ReadPayloads(const std::string& bytes) {
    std::stringstream medium(bytes);
    MCStream stream(medium, ZVTStream::binary);
    R manager(stream);
    std::vector<long> ids;
    while (manager.MoveNext() == R::eOk)
        ids.push_back(manager.GetCurrRecId());
    const std::set<long> positions(ids.begin(), ids.end());
    std::vector<std::string> payloads;
    for (const long id : ids) {
        const auto next = positions.upper_bound(id);
        const long end = next == positions.end() ? static_cast<long>(bytes.size()) : *next;
        const long start = id + R::c_nHeadSize;
        payloads.push_back(start < end ? bytes.substr(start, end - start) : std::string());
    }
    return payloads;
}

// A new chain of `payloads`, each written as it is after its head.
std::string WriteChain(const std::vector<std::string>& payloads) {
    std::stringstream medium;
    MCStream stream(medium, ZVTStream::binary);
    R writer(stream);
    for (const std::string& payload : payloads) {
        Require(writer.WriteRec() == R::eOk);
        for (const char byte : payload)
            stream << byte;
    }
    return medium.str();
}

void CheckBuilt(const std::string& input) {
    std::vector<std::string> payloads;
    for (size_t at = 0; at < input.size();) {
        const size_t length = std::min<size_t>(static_cast<unsigned char>(input[at]) % c_nPayloadLengths,
                                               input.size() - at - 1);
        payloads.push_back(input.substr(at + 1, length));
        at += 1 + length;
    }
    std::stringstream medium;
    MCStream stream(medium, ZVTStream::binary);
    R writer(stream);
    for (const std::string& payload : payloads) {
        Require(writer.WriteRec() == R::eOk && writer.eof());
        stream << ZVTString(payload);
    }

    R reader(stream);
    std::vector<std::string> forward;
    std::vector<MCRecMgrState> states;
    ZVTString read;
    while (reader.MoveNext() == R::eOk) {
        states.push_back(reader.GetState());
        stream >> read;
        forward.push_back(read.str());
    }
    Require(forward == payloads);
    std::vector<std::string> backward;
    for (R::eResult r = reader.MoveLast(); r == R::eOk; r = reader.MovePrev()) {
        stream >> read;
        backward.push_back(read.str());
    }
    Require(std::equal(backward.rbegin(), backward.rend(), payloads.begin(), payloads.end()));
    if (!states.empty()) {
        const size_t chosen = input.size() % states.size();
        reader.SetState(states[chosen]);
        Require(reader.GetState() == states[chosen]);
        stream >> read;
        Require(read.str() == payloads[chosen]);
    }

    // The built chain, and the same with one byte changed, read as any bytes are.
    std::string bytes = medium.str();
    CheckRead(bytes);
    if (!bytes.empty() && !input.empty()) {
        bytes[input.size() % bytes.size()] ^= static_cast<char>(input[0] | 1);
        CheckRead(bytes);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    CheckRead(bytes);
    const std::vector<std::string> payloads = ReadPayloads(bytes);
    Require(ReadPayloads(WriteChain(payloads)) == payloads);
    CheckBuilt(bytes);
    return 0;
}
