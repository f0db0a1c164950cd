// Feeds arbitrary bytes to a model restore on the class model. Whatever the bytes, the restore ends with
// a result or one of its documented exceptions; a model it restores saves again and restores to the same
// census; and once the host has taken down what was made, no object is left alive.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "examples/classmodel/ClassModel.h"

namespace {

// Restores `bytes`; the root on resultOk, else null. Throws nothing but what a restore documents.
MCObject* Restore(std::istream& bytes) {
    MCStream stream(bytes, ZVTStream::binary);
    MCPersController controller;
    MCPersHeader header;
    MCObject* root = nullptr;
    return controller.RestoreFrom(stream, root, header) == MCPersController::resultOk ? root : nullptr;
}

// A restored model saves without failure, and what it saves restores to as many objects of each type.
void CheckRoundTrip(MCObject* root) {
    if (!root || !root->IsType(CMCodes::tModel, MCItem::rttiDerived))
        return;  // only a model is a unit of its own
    std::stringstream saved;
    {
        MCStream stream(saved, ZVTStream::binary);
        MCPersController controller;
        MCPersHeader header;
        if (controller.SaveTo(stream, root, header) != MCPersController::resultOk || !stream.good())
            std::abort();
    }
    saved.seekg(0);
    CMCreationLog created;
    MCObject* again = Restore(saved);
    if (!again || ClassModel::Census(again) != ClassModel::Census(root))
        std::abort();
    created.ExpungeStrays(nullptr);
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
        // never came: all of it goes.
        created.ExpungeStrays(nullptr);
    }
    // The registry still counts an object that a restore made and nobody took down: a leak that the
    // leak checker cannot see, as the registry holds it.
    if (ClassModel::LiveObjects() != 0)
        std::abort();
    return 0;
}
