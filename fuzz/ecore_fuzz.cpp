// Imports arbitrary bytes as an Ecore file into the class model. Whatever the bytes, the import gives a
// model or an error naming a line of the input; a model saves and restores to an equal tree; and once
// the model and its copy are expunged, or the import failed, no object is left alive.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "examples/classmodel/ClassModel.h"
#include "examples/classmodel/EcoreImport.h"

namespace {

// The name the errors carry before their line.
constexpr char c_acName[] = "input";

void Require(bool holds) {
    if (!holds)
        std::abort();
}

// "input:LINE: message", LINE a line of the bytes.
void CheckError(const std::string& error, const char* bytes, std::size_t size) {
    const std::string prefix = std::string(c_acName) + ":";
    Require(error.compare(0, prefix.size(), prefix) == 0);
    char* end = nullptr;
    const long line = std::strtol(error.c_str() + prefix.size(), &end, 10);
    Require(*end == ':' && line >= 1 && line <= 1 + std::count(bytes, bytes + size, '\n'));
}

void CheckRoundTrip(MCObject* model) {
    std::stringstream saved;
    {
        MCStream stream(saved, ZVTStream::binary);
        MCPersController controller;
        MCPersHeader header;
        Require(controller.SaveTo(stream, model, header) == MCPersController::resultOk && stream.good());
    }
    saved.seekg(0);
    MCStream stream(saved, ZVTStream::binary);
    MCPersController controller;
    MCPersHeader header;
    MCObject* restored = nullptr;
    CMCreationLog created;
    Require(controller.RestoreFrom(stream, restored, header) == MCPersController::resultOk && restored);
    Require(ClassModel::CompareRestored(model, restored, stream.GetIdSpace()).empty());
    created.ExpungeStrays(nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Lives as long as the process: the library comes up once.
    static CMSession* session = new CMSession;
    (void)session;
    // Messages of refused edits go to the recorder, not to the terminal.
    HUBScopedMessageHandler quiet;

    const char* bytes = reinterpret_cast<const char*>(data);
    const EcoreImportResult result = ImportEcoreBytes(c_acName, bytes, size);
    if (result.m_pxModel) {
        Require(result.m_sError.empty());
        CheckRoundTrip(result.m_pxModel);
        result.m_pxModel->Expunge(true);
    } else {
        CheckError(result.m_sError, bytes, size);
    }
    // The registry still counts an object that the import made and nobody took down.
    Require(ClassModel::LiveObjects() == 0);
    return 0;
}
