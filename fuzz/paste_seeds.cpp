// Writes the seed corpus of paste_fuzz into the directory it is given: clip buffers copied from the class
// diagram that paste_fuzz pastes into, and some of them cut short or given entries that a copy never
// writes. fuzz/make-corpus.sh runs it.

#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/clip_model.h"

namespace {

std::string Copy(const std::vector<MCObject*>& objects, MCObject& source) {
    ZVTSList<MCObject*> selection;
    for (MCObject* object : objects)
        selection.Append(object);
    MCClipList copy(selection, source, MCClipList::modeCopy, nullptr);
    std::string bytes(static_cast<std::size_t>(copy.GetBufferSize()), '\0');
    copy.CopyBuffer(bytes.data());
    return bytes;
}

// An entry of the prelude that stands for `object` without copying it: level -1, bound by id, and a
// record without properties.
std::string SharedEntry(MCObject* object) {
    std::stringstream bytes;
    {
        MCStream stream(bytes, ZVTStream::binary);
        const short preludeLevel = -1;
        const char bindById = 0;
        const unsigned short noFlags = 0;
        stream << static_cast<char>(MCStream::tokenClipEntry2) << preludeLevel << object->GetId() << bindById
               << ZVTString(ClassModel::NameOf(object).c_str()) << object->GetType();
        stream << static_cast<char>(MCStream::tokenObject) << object->GetType() << object->GetId()
               << object->GetOwner(0, MCItem::rttiExact)->GetId() << noFlags
               << static_cast<char>(MCStream::tokenObjectEnd);
    }
    return bytes.str();
}

// The buffer with an address token of 0; its head is a char, then the source's id and address token.
std::string SamePlace(std::string bytes) {
    const std::size_t addressOffset = sizeof(char) + 4;
    const std::size_t addressSize = 4;
    bytes.replace(addressOffset, addressSize, addressSize, '\0');
    return bytes;
}

bool Write(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(file);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
        return 2;
    }
    const std::filesystem::path dir(argv[1]);
    CMSession session;
    const ClipModel built = BuildClipModel();
    MCObject& source = *built.model;
    const std::string package = Copy({built.first}, source);
    const std::string classes = Copy({built.classes[0], built.classes[1], built.association}, source);
    const std::string empty = Copy({}, source);

    // An empty selection writes the head, the global section and the end token; a copy from the same
    // source has the same head and globals, and its level mark where the empty one ends.
    const std::size_t globalsEnd = empty.size() - 1;
    for (const std::string* copy : {&package, &classes}) {
        if (copy->compare(0, globalsEnd, empty, 0, globalsEnd) != 0 ||
            (*copy)[globalsEnd] != MCStream::tokenClipLevel) {
            std::fprintf(stderr, "paste_seeds: a copy does not start like the empty selection's buffer\n");
            return 1;
        }
    }
    const auto withPrelude = [&](MCObject* object) {
        return classes.substr(0, globalsEnd) + SharedEntry(object) + classes.substr(globalsEnd);
    };
    const std::pair<const char*, std::string> seeds[] = {
        {"package.clip", package},
        {"classes.clip", classes},
        {"empty.clip", empty},
        {"head-only.clip", package.substr(0, globalsEnd)},
        // Past the end token, the record's end token and the last bytes of its last property.
        {"truncated.clip", package.substr(0, package.size() - 9)},
        // A class of the source that the selection left out.
        {"prelude.clip", withPrelude(built.classes[2])},
        // A class that the selection holds too: its id stands twice.
        {"duplicate-id.clip", withPrelude(built.classes[0])},
        // The prelude's class pasted into its own source: paste_fuzz fills in an address token of 0.
        {"same-place.clip", SamePlace(withPrelude(built.classes[2]))},
    };
    bool written = true;
    for (const auto& [name, bytes] : seeds)
        written = Write(dir / name, bytes) && written;
    built.model->Expunge(true);
    if (!written)
        std::fprintf(stderr, "paste_seeds: cannot write into %s\n", argv[1]);
    return written ? 0 : 1;
}
