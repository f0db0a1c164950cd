// Feeds arbitrary bytes to a model restore on the class model. Whatever the bytes, the restore ends with
// a result or one of its documented exceptions; a model it restores saves again, and that save restores
// to an equal tree (the same canonical dump: types, flags, owners, properties and references, ids by walk
// order, the restored ownees in the reverse order, as a restore appends them in file order) with nothing
// left beside it, and whose save begins with the same head and global section, byte for byte; and once
// the host has taken down what was made, no object is left alive. The records of the two saves are not
// compared byte for byte: a restored object takes a fresh id, the ids stand in the records, and the
// ownees stand in the reverse order.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "examples/classmodel/ClassModel.h"
#include "fuzz/tree_dump.h"

namespace {

// The widths of a model file's fields (docs/stream-format.md).
constexpr std::size_t c_nPrefixSize = sizeof("MdlCore");
constexpr std::size_t c_nLongSize = 4;
constexpr std::size_t c_nShortSize = 2;
constexpr std::uint32_t c_uNullString = 0xFFFFFFFF;

// The length of a saved model's head and global sections, which hold no ids; 0 when they do not parse.
std::size_t HeadAndGlobalsSize(const std::string& bytes) {
    std::size_t at = 0;
    const auto skip = [&](std::size_t count) {
        at += count;
        return at <= bytes.size();
    };
    const auto readLong = [&](std::uint32_t& value) {
        if (!skip(c_nLongSize))
            return false;
        value = 0;
        for (std::size_t i = 0; i < c_nLongSize; ++i)
            value |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at - c_nLongSize + i]))
                     << (8 * i);
        return true;
    };
    const auto skipString = [&]() {
        std::uint32_t length = 0;
        return readLong(length) && (length == c_uNullString || skip(length));
    };
    if (!skip(c_nPrefixSize + 2 * c_nLongSize) || !skipString() || !skipString() || !skipString())
        return 0;
    while (at < bytes.size() && bytes[at] == MCStream::tokenGlobals) {
        ++at;
        // Per user-defined property: code, name, type, first flag, the count of types using it and those.
        std::uint32_t users = 0;
        while (at < bytes.size() && bytes[at] == MCStream::tokenProperty) {
            if (!skip(1 + c_nShortSize) || !skipString() || !skip(2 * c_nShortSize) || !readLong(users) ||
                !skip(users * c_nShortSize))
                return 0;
        }
        if (at >= bytes.size() || bytes[at] != MCStream::tokenGlobalsEnd)
            return 0;
        ++at;
    }
    return at;
}

// Restores `bytes`; the root on resultOk, else null. Throws nothing but what a restore documents.
MCObject* Restore(std::istream& bytes) {
    MCStream stream(bytes, ZVTStream::binary);
    MCPersController controller;
    MCPersHeader header;
    MCObject* root = nullptr;
    return controller.RestoreFrom(stream, root, header) == MCPersController::resultOk ? root : nullptr;
}

// The bytes of a save of the model `root`, which must not fail.
std::string Save(MCObject* root) {
    std::stringstream saved;
    MCStream stream(saved, ZVTStream::binary);
    MCPersController controller;
    MCPersHeader header;
    if (controller.SaveTo(stream, root, header) != MCPersController::resultOk || !stream.good())
        std::abort();
    stream.flush();
    return saved.str();
}

// A restored model saves without failure, and what it saves restores to an equal tree, whole (its root
// is the one object without an owner that the second restore made), which saves the same head and
// global section.
void CheckRoundTrip(MCObject* root) {
    if (!root || !root->IsType(CMCodes::tModel, MCItem::rttiDerived))
        return;  // only a model is a unit of its own
    const std::string saved = Save(root);
    std::istringstream bytes(saved);
    CMCreationLog created;
    MCObject* again = Restore(bytes);
    if (!again)
        std::abort();
    RequireSameDump(DumpTrees({root}), DumpTrees({again}, Siblings::oldestFirst));
    const std::size_t globals = HeadAndGlobalsSize(saved);
    if (globals == 0 || Save(again).compare(0, globals, saved, 0, globals) != 0)
        std::abort();
    if (created.ExpungeStrays(nullptr) != 1)
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Lives as long as the process: the registries are not rebuilt for every input.
    static CMSession* session = new CMSession;
    (void)session;
    // Messages of refused creations go to the recorder, not to the terminal.
    HUBScopedMessageHandler quiet;

    std::istringstream bytes(std::string(reinterpret_cast<const char*>(data), size));
    {
        CMCreationLog created;
        try {
            CheckRoundTrip(Restore(bytes));
        } catch (const MCPersExObjectCreation&) {
        } catch (const MCPersExBadTree&) {
        } catch (const EXBase&) {
        }
        // The root on success, the ownerless remains after a failure, strays from records whose owner
        // never came: all of it goes, each root out of the user-defined properties it holds first (else
        // a later root at the same address would hold them too and save them in its global section).
        created.ExpungeStrays(nullptr);
    }
    // The registry still counts an object that a restore made and nobody took down: a leak that the
    // leak checker cannot see, as the registry holds it.
    if (ClassModel::LiveObjects() != 0)
        std::abort();
    return 0;
}
