// mcinspect: prints what a class-diagram model file or clip buffer holds (head, global section, objects by
// type, or a buffer's entries by level with what a paste makes of each) and says where and how a damaged
// one goes wrong. Property records carry no length, so the class model is registered and each property is
// read by its own class, into a scratch object. "expand" restores a model and generates text from it with
// a template, through the class model's data butler; --dump restores a model and prints its object dumps;
// --dot restores a model and writes it as a Graphviz graph.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "examples/classmodel/ClassModel.h"
#include "examples/classmodel/ClassModelButler.h"
#include "platform/ZVMTemplate.h"
#include "tools/DotWriter.h"

namespace {

// Exit codes; --help lists them, scripts test them.
enum Exit : int {
    exitOk = 0,
    exitUsage = 1,
    exitBadHead = 2,
    exitTruncated = 3,
    exitUnknownToken = 4,
    exitUnknownType = 5,
    exitBadGlobals = 6,
    exitBadTemplate = 7,
};

const char c_acHelp[] =
    "usage: mcinspect [--objects] FILE\n"
    "       mcinspect --clip FILE\n"
    "       mcinspect expand TEMPLATE MODELFILE [-o OUT]\n"
    "       mcinspect --dump FILE\n"
    "       mcinspect --dot FILE [-o OUT]\n"
    "Prints the head, the global section and a summary of the objects by type of a model file written\n"
    "by the class-diagram host; --objects also lists every object record. --clip reads FILE as a clip\n"
    "buffer: its source, its global section, its entries by level with what a paste does with each, and\n"
    "its end token. expand restores the model of MODELFILE and writes the text that TEMPLATE makes of it,\n"
    "anchored at the model's root, to OUT or standard output (the language: docs/templates.md).\n"
    "--dump restores the model of FILE and prints its tree as an indented outline, then the dump of each\n"
    "object, depth first: its properties with their flags and values, its subscribers, its size.\n"
    "--dot restores the model of FILE and writes it as a Graphviz graph to OUT or standard output: a\n"
    "class diagram (packages as clusters, classes with their attributes, generalizations, associations)\n"
    "when its root is a class model, otherwise the owner tree with its references as dashed edges.\n"
    "Render it with: dot -Tsvg\n"
    "exit codes:\n"
    "  0  the file was read to its end (a clip buffer: to its end token)\n"
    "  1  bad arguments, the file cannot be opened, or OUT cannot be written\n"
    "  2  bad head: not a model file, a newer format, another company or product, or cut short;\n"
    "     a clip buffer that does not start with its head token or ends inside its head;\n"
    "     expand, --dump, --dot: any other model that cannot be restored\n"
    "  3  truncated inside an object record; a clip buffer that ends anywhere before its end token\n"
    "  4  unknown token at top level or inside an object record (expand, --dump, --dot: the restore\n"
    "     fails);\n"
    "     in a clip buffer also a token a paste stops at: an entry of type 1, a shared entry behind\n"
    "     the level mark, a second level mark, the end token before the level mark\n"
    "  5  unknown object or property type\n"
    "  6  damaged global section\n"
    "  7  expand: the template cannot be read, does not parse, or calls a macro the butler does not know\n"
    "     (TEMPLATE:LINE:COLUMN: why, on standard error)\n";

const char* HeadResultName(MCPersHeader::result result) {
    switch (result) {
        case MCPersHeader::resultOk:
            return "ok";
        case MCPersHeader::resultStreamFailed:
            return "head cut short or unreadable";
        case MCPersHeader::resultBadPrefix:
            return "not a model file (bad prefix)";
        case MCPersHeader::resultNewerMajor:
            return "newer major format version";
        case MCPersHeader::resultNewerMinor:
            return "newer minor format version";
        case MCPersHeader::resultOtherCompany:
            return "written by another company";
        case MCPersHeader::resultOtherProduct:
            return "written by another product";
    }
    return "unknown head result";
}

std::string TypeName(short code) {
    ZVTString name = MCFactoryRegistry::Lookup(code);
    return name.IsNull() ? "?" : name.str();
}

bool IsConcrete(short code, unsigned long kind) {
    unsigned long flags = 0;
    return code != 0 && MCFactoryRegistry::GetFlags(code, flags) && (flags & kind) &&
           (flags & (MCFactoryRegistry::flagConcrete | MCFactoryRegistry::flagAlias));
}

struct TypeSummary {
    long m_nCount = 0;
    long m_lMinId = 0, m_lMaxId = 0;
    std::set<long> m_xOwners;
};

// What the frame and the record of a clip entry say: enough to tell what a paste does with it.
struct ClipEntry {
    char m_cToken = 0;
    short m_sLevel = 0;
    long m_lId = 0;
    bool m_bUndeletable = false;
    std::string m_sName;
    short m_sType = 0;
    MCPersObjectHeader m_xRecord;
};

std::string Hex(char token) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%02x", token & 0xFF);
    return text;
}

class Inspector {
public:
    Inspector(std::istream& file, bool listObjects)
        : m_xStream(file, ZVTStream::binary), m_bListObjects(listObjects) {}

    ~Inspector() {
        if (m_pxScratch)
            m_pxScratch->Expunge(true);
    }

    int Run() {
        // The tool says itself what is wrong; the library's messages would only repeat it.
        HUBScopedMessageHandler quiet;
        MCPersHeader header;
        const MCPersHeader::result head = header.RestoreFrom(m_xStream);
        if (head != MCPersHeader::resultOk)
            return Fail(exitBadHead, std::string("bad head: ") + HeadResultName(head));
        std::printf(
            "head: prefix \"MdlCore\", format %ld.%ld, company \"%s\", product \"%s\", version \"%s\"\n",
            header.GetFileMajorVersion(), header.GetFileMinorVersion(), header.GetCompanyCode().data(),
            header.GetProductCode().data(), header.GetProductVersion().data());

        int status = MakeScratch();
        if (status != exitOk)
            return status;
        while (status == exitOk) {
            const long offset = m_xStream.tellg();
            char token = 0;
            m_xStream >> token;
            if (m_xStream.fail() || token == MCStream::tokenEndMark)
                break;  // a model file ends where its data ends
            if (token == MCStream::tokenGlobals)
                status = ReadGlobals(offset);
            else if (token == MCStream::tokenObject)
                status = ReadObject(offset);
            else
                status = Fail(exitUnknownToken, "unknown token " + std::to_string(token & 0xFF) +
                                                    " at offset " + std::to_string(offset));
        }
        PrintSummary();
        return status;
    }

    int RunClip() {
        HUBScopedMessageHandler quiet;
        char head = 0;
        long sourceId = 0;
        unsigned long sourceAddress = 0;
        m_xStream >> head;
        if (!m_xStream.fail() && head != MCStream::tokenClipHead)
            return Fail(exitBadHead, "bad head: token " + Hex(head) + " at offset 0 is no clip head");
        m_xStream >> sourceId >> sourceAddress;
        if (m_xStream.fail())
            return Fail(exitBadHead, "bad head: the clip head is cut short");
        std::printf("clip head: source object %ld, source address token 0x%08lx\n", sourceId, sourceAddress);
        if (const int status = MakeScratch(); status != exitOk)
            return status;

        // A paste reads as many global sections as follow the head, none included.
        bool globals = false;
        for (;;) {
            const long offset = m_xStream.tellg();
            char token = 0;
            m_xStream >> token;
            if (m_xStream.fail())
                return Fail(exitTruncated, "truncated at offset " + std::to_string(offset) +
                                               ": the buffer ends before its end token; a paste fails");
            if (token != MCStream::tokenGlobals) {
                if (!globals)
                    std::printf("global section: none\n");
                return ReadClipEntries(token, offset);
            }
            globals = true;
            if (const int status = ReadGlobals(offset); status != exitOk)
                return status;
            // The registry stops at the end of the data as at the section's end token.
            if (m_xStream.fail() || m_xStream.eof())
                return Fail(exitTruncated, "truncated: the buffer ends with the global section at offset " +
                                               std::to_string(offset));
        }
    }

private:
    int Fail(int code, const std::string& message) {
        std::fprintf(stderr, "mcinspect: %s\n", message.c_str());
        return code;
    }

    // A model, so that it can stand as the persistence root of the user-defined properties read.
    int MakeScratch() {
        m_pxScratch =
            static_cast<MCObject*>(MCFactoryRegistry::CreateItem(CMCodes::tModel, nullptr, nullptr, nullptr));
        return m_pxScratch ? exitOk : Fail(exitUsage, "cannot make the scratch object");
    }

    int ReadGlobals(long offset) {
        auto map = std::make_unique<MCUDPMap>();
        try {
            MCFactoryRegistry::GetInstance()->RestoreFrom(m_xStream, map.get(), nullptr);
        } catch (const EXBase&) {
            return Fail(exitBadGlobals, "damaged global section at offset " + std::to_string(offset));
        }
        std::printf("global section: %zu known and %zu unknown user-defined properties\n", map->Entries(),
                    map->m_xUDPInfos.Length());
        MCMapToIterT<short, short> known(*map);
        while (++known) {
            std::printf("  stored %d -> %d \"%s\"\n", known.From(), known.To(), TypeName(known.To()).c_str());
        }
        for (size_t i = 0; i < map->m_xUDPInfos.Length(); ++i) {
            const MCUDPInfo& info = map->m_xUDPInfos[i];
            std::string users;
            for (size_t t = 0; t < info.m_xUsingTypes.Length(); ++t)
                users += (users.empty() ? "" : ", ") + TypeName(info.m_xUsingTypes[t]);
            std::printf("  stored %d \"%s\" of %s, used by %s\n", info.m_sCode, info.m_xName.data(),
                        TypeName(info.m_sConcreteType).c_str(), users.empty() ? "no type" : users.c_str());
        }
        // Only the first section counts, as in a restore. Registering the names this process does not
        // know maps their stored codes, so that their property records can be read.
        if (!m_xStream.GetUDPMap()) {
            MCFactoryRegistry::RegisterUDPs(*m_pxScratch, map.get());
            m_xStream.AdoptUDPMap(map.release());
        }
        return exitOk;
    }

    int ReadObject(long offset) {
        MCPersObjectHeader object;
        std::string name;
        long properties = 0;
        if (const int status = ReadRecord(offset, object, name, properties); status != exitOk)
            return status;

        TypeSummary& summary = m_xTypes[object.m_sType];
        if (summary.m_nCount++ == 0 || object.m_lId < summary.m_lMinId)
            summary.m_lMinId = object.m_lId;
        if (summary.m_nCount == 1 || object.m_lId > summary.m_lMaxId)
            summary.m_lMaxId = object.m_lId;
        summary.m_xOwners.insert(object.m_lOwnerId);
        if (m_bListObjects)
            std::printf("  object %ld %s owner %ld flags 0x%04x, %ld properties%s%s%s\n", object.m_lId,
                        TypeName(object.m_sType).c_str(), object.m_lOwnerId, object.m_usFlags, properties,
                        name.empty() ? "" : ", name \"", name.c_str(), name.empty() ? "" : "\"");
        return exitOk;
    }

    // Reads an object record whose token, at `offset`, has been read.
    int ReadRecord(long offset, MCPersObjectHeader& object, std::string& name, long& properties) {
        m_xStream >> object.m_sType >> object.m_lId >> object.m_lOwnerId >> object.m_usFlags;
        const std::string where = "object record at offset " + std::to_string(offset);
        if (m_xStream.fail())
            return Fail(exitTruncated, "truncated in the head of the " + where);
        if (!IsConcrete(object.m_sType, MCFactoryRegistry::flagObject))
            return Fail(exitUnknownType,
                        "unknown object type " + std::to_string(object.m_sType) + " in the " + where);

        for (;;) {
            char token = 0;
            m_xStream >> token;
            if (m_xStream.fail())
                return Fail(exitTruncated, "truncated in the " + where);
            if (token == MCStream::tokenObjectEnd)
                return exitOk;
            if (token != MCStream::tokenProperty)
                return Fail(exitUnknownToken,
                            "unknown token " + std::to_string(token & 0xFF) + " in the " + where);
            short type = 0;
            m_xStream >> type;
            if (m_xStream.fail())
                return Fail(exitTruncated, "truncated in the " + where);
            const short stored = type;
            if (type < 0)
                type = m_xStream.TranslateUDPType(type);
            if (!IsConcrete(type, MCFactoryRegistry::flagProperty))
                return Fail(exitUnknownType,
                            "unknown property type " + std::to_string(stored) + " in the " + where);
            if (!ReadProperty(type, name))
                return Fail(exitTruncated,
                            "truncated in property " + std::to_string(stored) + " of the " + where);
            ++properties;
        }
    }

    // Reads one property record through the property's own class; false when the stream gave out.
    bool ReadProperty(short type, std::string& name) {
        auto* property = const_cast<MCProperty*>(m_pxScratch->FindProperty(type, true));
        if (!property)
            property =
                dynamic_cast<MCProperty*>(MCFactoryRegistry::CreateItem(type, m_pxScratch, nullptr, nullptr));
        if (!property)
            return false;
        const long id = m_pxScratch->GetId();
        try {
            property->RestoreFrom(m_xStream);
        } catch (const EXBase&) {
            m_pxScratch->SetId(id);
            return false;
        }
        // The scratch object keeps its own id, as a restored object does.
        m_pxScratch->SetId(id);
        if (m_xStream.fail())
            return false;
        if (type == CMCodes::pName)
            name = ClassModel::NameOf(m_pxScratch);
        return true;
    }

    void PrintSummary() {
        long total = 0;
        for (const auto& entry : m_xTypes)
            total += entry.second.m_nCount;
        std::printf("objects: %ld in %zu types\n", total, m_xTypes.size());
        for (const auto& [type, summary] : m_xTypes) {
            std::string owners;
            if (summary.m_xOwners.size() <= 3) {
                for (long owner : summary.m_xOwners)
                    owners += (owners.empty() ? "" : ", ") + std::to_string(owner);
            } else {
                owners = std::to_string(summary.m_xOwners.size()) + " distinct, " +
                         std::to_string(*summary.m_xOwners.begin()) + ".." +
                         std::to_string(*summary.m_xOwners.rbegin());
            }
            std::printf("  %-5d %-16s %6ld  ids %ld..%ld  owners %s\n", type, TypeName(type).c_str(),
                        summary.m_nCount, summary.m_lMinId, summary.m_lMaxId, owners.c_str());
        }
    }

    // The tokens behind the global sections, starting with `token` at `offset`, up to the end token.
    int ReadClipEntries(char token, long offset) {
        for (;;) {
            int status = exitOk;
            switch (token) {
                case MCStream::tokenClipEntry0:
                    status = ReadClipEntry(token, offset);
                    break;
                case MCStream::tokenClipEntry2:
                    status = m_bMarked ? Stop(offset, "shared entry (token 0x23) behind the level mark")
                                       : ReadClipEntry(token, offset);
                    break;
                case MCStream::tokenClipEntry1:
                    status = Stop(offset, "entry of type 1 (token 0x22), which no reader accepts,");
                    break;
                case MCStream::tokenClipLevel:
                    if (m_bMarked) {
                        status = Stop(offset, "second level mark");
                        break;
                    }
                    FlushGroup();
                    std::printf("level mark at offset %ld\n", offset);
                    m_bMarked = true;
                    break;
                case MCStream::tokenClipEnd:
                    if (!m_bMarked) {
                        status = Stop(offset, "end token before the level mark");
                        break;
                    }
                    FlushGroup();
                    std::printf("end token at offset %ld\n", offset);
                    return ReadTrailer();
                default:
                    status = Stop(offset, "unknown token " + std::to_string(token & 0xFF));
            }
            if (status != exitOk) {
                FlushGroup();
                return status;
            }
            offset = m_xStream.tellg();
            m_xStream >> token;
            if (m_xStream.fail()) {
                FlushGroup();
                // Behind the mark a paste takes the end of the data for the end token.
                return Fail(exitTruncated,
                            "truncated at offset " + std::to_string(offset) +
                                ": the buffer ends before its end token; " +
                                (m_bMarked ? "a paste keeps what came before" : "a paste fails"));
            }
        }
    }

    int Stop(long offset, const std::string& what) {
        return Fail(exitUnknownToken, what + " at offset " + std::to_string(offset) + ": a paste fails here");
    }

    int ReadClipEntry(char token, long offset) {
        ClipEntry entry;
        entry.m_cToken = token;
        char flag = 0;
        ZVTString name;
        m_xStream >> entry.m_sLevel >> entry.m_lId >> flag >> name >> entry.m_sType;
        const std::string where = "entry at offset " + std::to_string(offset);
        if (m_xStream.fail())
            return Fail(exitTruncated, "truncated in the frame of the " + where);
        if (!IsConcrete(entry.m_sType, MCFactoryRegistry::flagObject))
            return Fail(exitUnknownType, "unknown object type " + std::to_string(entry.m_sType) +
                                             " in the frame of the " + where);
        const long recordOffset = m_xStream.tellg();
        char object = 0;
        m_xStream >> object;
        if (m_xStream.fail())
            return Fail(exitTruncated, "truncated in the frame of the " + where);
        if (object != MCStream::tokenObject)
            return Fail(exitUnknownToken, "unknown token " + std::to_string(object & 0xFF) +
                                              " where the object record of the " + where + " starts");
        std::string recordName;
        long properties = 0;
        if (const int status = ReadRecord(recordOffset, entry.m_xRecord, recordName, properties);
            status != exitOk)
            return status;
        entry.m_bUndeletable = flag != 0;
        entry.m_sName = name.IsNull() ? "" : name.str();

        std::string line = std::string(token == MCStream::tokenClipEntry2 ? "shared" : "copy") + "  level " +
                           std::to_string(entry.m_sLevel) + "  id " + std::to_string(entry.m_lId) + "  " +
                           TypeName(entry.m_sType) + " '" + entry.m_sName + "'";
        if (entry.m_xRecord.m_sType != entry.m_sType)
            line += " (record: " + TypeName(entry.m_xRecord.m_sType) + ")";
        line += "  owner " + std::to_string(entry.m_xRecord.m_lOwnerId);
        if (entry.m_bUndeletable)
            line += "  undeletable";
        AddToGroup(entry.m_sLevel, line + "  -> " + PasteAction(entry));
        // The paste binds the record's id; later records name it as their owner.
        m_xPlaced.insert(entry.m_xRecord.m_lId);
        return exitOk;
    }

    // What a paste does with the entry, from the buffer alone: whether a target can own the type is for
    // the paste to find out.
    std::string PasteAction(const ClipEntry& entry) const {
        const short type = entry.m_xRecord.m_sType;
        const std::string typeName = TypeName(type);
        const long ownerId = entry.m_xRecord.m_lOwnerId;
        // The record goes under what its owner id was bound to, whatever the entry's level.
        const std::string placed =
            ownerId != 0 && m_xPlaced.count(ownerId) ? "follows owner " + std::to_string(ownerId) : "";
        const std::string once = placed.empty() ? "create once under the common target (if it can own a " +
                                                      typeName + "), else discard it and the deeper entries"
                                                : placed;
        const std::string byName = "bind by name to a " + TypeName(entry.m_sType) + " '" + entry.m_sName +
                                   "' the common target owns, else ";
        if (!m_bMarked) {
            // Before the mark every record is placed as level -1: once, and not among the result ids.
            if (entry.m_cToken == MCStream::tokenClipEntry0)
                return once + "; no result id";
            return "into its source: bind to object " + std::to_string(entry.m_lId) +
                   "; elsewhere: " + (entry.m_bUndeletable ? byName : "") + once + "; no result id";
        }
        if (entry.m_bUndeletable)
            return byName + once + "; no result id";
        if (!placed.empty())
            return placed;
        if (entry.m_sLevel == 0)
            return "create under each target (if it can own a " + typeName +
                   "), else once under the common target (if it can), else discard it and the deeper "
                   "entries";
        return "owner " + std::to_string(ownerId) + " is not in the buffer: " + once;
    }

    void AddToGroup(short level, std::string line) {
        if (!m_xGroup.empty() && level != m_sGroupLevel)
            FlushGroup();
        m_sGroupLevel = level;
        m_xGroup.push_back(std::move(line));
    }

    void FlushGroup() {
        if (m_xGroup.empty())
            return;
        std::printf("level %d: %zu %s\n", m_sGroupLevel, m_xGroup.size(),
                    m_xGroup.size() == 1 ? "entry" : "entries");
        for (const std::string& line : m_xGroup)
            std::printf("  %s\n", line.c_str());
        m_xGroup.clear();
    }

    // A paste stops at the end token; what follows it is reported, not read.
    int ReadTrailer() {
        long trailing = 0;
        char byte = 0;
        for (m_xStream >> byte; !m_xStream.fail(); m_xStream >> byte)
            ++trailing;
        if (trailing > 0)
            std::printf("%ld bytes after the end token, which a paste ignores\n", trailing);
        return exitOk;
    }

    MCStream m_xStream;
    bool m_bListObjects;
    MCObject* m_pxScratch = nullptr;
    std::map<short, TypeSummary> m_xTypes;
    // Clip buffers: whether the level mark was read, the ids of the records read, and the entries of the
    // level being read.
    bool m_bMarked = false;
    std::set<long> m_xPlaced;
    short m_sGroupLevel = 0;
    std::vector<std::string> m_xGroup;
};

bool ReadText(const char* path, std::string& text) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

// Restores the model of `path` in a session of its own and gives it to `use`, whose exit code it answers;
// then takes down all the restore made. A model that cannot be restored is reported on standard error
// with its exit code, and `use` does not run.
int WithRestoredModel(const char* path, const std::function<int(MCObject*)>& use) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        std::fprintf(stderr, "mcinspect: cannot open %s\n", path);
        return exitUsage;
    }
    CMSession session;
    mc::RestoreResult restored = mc::Restore(file);
    if (restored) {
        const int status = use(restored.root);
        restored.ExpungeAll();
        return status;
    }
    restored.ExpungeAll();
    std::fprintf(stderr, "mcinspect: %s is no model that can be restored (result %d)\n", path,
                 static_cast<int>(restored.outcome));
    return restored.outcome == MCPersController::resultUnknownToken ? exitUnknownToken : exitBadHead;
}

// Writes `text` to the file at `outPath`, or to standard output when it is null.
int WriteOut(const std::string& text, const char* outPath) {
    if (!outPath) {
        std::fwrite(text.data(), 1, text.size(), stdout);
        return exitOk;
    }
    std::ofstream target(outPath, std::ios::binary);
    if (!(target << text) || !target.flush()) {
        std::fprintf(stderr, "mcinspect: cannot write %s\n", outPath);
        return exitUsage;
    }
    return exitOk;
}

// mcinspect --dot FILE [-o OUT]
int WriteDot(const char* path, const char* outPath) {
    return WithRestoredModel(
        path, [outPath](MCObject* model) { return WriteOut(DotWriter::Write(model), outPath); });
}

// mcinspect --dump FILE: the outline of the restored tree, then each object's dump, depth first.
int DumpTree(const char* path) {
    return WithRestoredModel(path, [](MCObject* model) {
        std::stringstream outline;
        {
            MCStream stream(outline, ZVTStream::binary);
            MCDumpableParameter parameter;
            static_cast<MCDumpable*>(model)->Dump(stream, MCObject::dumpOutline, &parameter);
        }
        // An object dump writes to a file stream; this one writes into a string.
        std::stringbuf objects;
        std::ofstream out;
        out.std::ios::rdbuf(&objects);
        std::vector<MCObject*> pending{model};
        while (!pending.empty()) {
            MCObject* object = pending.back();
            pending.pop_back();
            out << '\n';
            object->Dump(out, 0);
            out << '\n';
            // The oldest ownee on top, so that it comes next.
            const size_t first = pending.size();
            for (MCObject* ownee : mc::Ownees(object))
                pending.push_back(ownee);
            std::reverse(pending.begin() + static_cast<std::ptrdiff_t>(first), pending.end());
        }
        return WriteOut(outline.str() + objects.str(), nullptr);
    });
}

// mcinspect expand TEMPLATE MODELFILE [-o OUT]
int Expand(int argc, char** argv) {
    const char* templatePath = nullptr;
    const char* modelPath = nullptr;
    const char* outPath = nullptr;
    for (int i = 2; i < argc; ++i) {
        if (std::strcmp(argv[i], "-o") == 0 && i + 1 < argc && !outPath)
            outPath = argv[++i];
        else if (!templatePath && argv[i][0] != '-')
            templatePath = argv[i];
        else if (!modelPath && argv[i][0] != '-')
            modelPath = argv[i];
        else
            templatePath = modelPath = nullptr, i = argc;
    }
    if (!templatePath || !modelPath) {
        std::fputs(c_acHelp, stderr);
        return exitUsage;
    }
    std::string text;
    ZVMTemplate parsed;
    ZVMTemplateError error;
    if (!ReadText(templatePath, text)) {
        std::fprintf(stderr, "mcinspect: cannot read %s\n", templatePath);
        return exitBadTemplate;
    }
    if (!parsed.Parse(text, error)) {
        std::fprintf(stderr, "%s:%s\n", templatePath, error.Format().c_str());
        return exitBadTemplate;
    }
    return WithRestoredModel(modelPath, [&](MCObject* model) {
        std::string out;
        CMDataButler butler(model);
        try {
            if (!parsed.Expand(butler, out, error)) {
                std::fprintf(stderr, "%s:%s\n", templatePath, error.Format().c_str());
                return static_cast<int>(exitBadTemplate);
            }
        } catch (const EXBase& raised) {
            // A macro on the context after the template popped the model itself, for one.
            std::fprintf(stderr, "%s: the expansion stopped: %s\n", templatePath, raised.what());
            return static_cast<int>(exitBadTemplate);
        }
        return WriteOut(out, outPath);
    });
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "expand") == 0)
        return Expand(argc, argv);
    bool listObjects = false;
    bool clip = false;
    bool dump = false;
    bool dot = false;
    const char* path = nullptr;
    const char* outPath = nullptr;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            std::fputs(c_acHelp, stdout);
            return exitOk;
        }
        if (std::strcmp(argv[i], "--objects") == 0) {
            listObjects = true;
        } else if (std::strcmp(argv[i], "--clip") == 0) {
            clip = true;
        } else if (std::strcmp(argv[i], "--dump") == 0) {
            dump = true;
        } else if (std::strcmp(argv[i], "--dot") == 0) {
            dot = true;
        } else if (std::strcmp(argv[i], "-o") == 0 && i + 1 < argc && !outPath) {
            outPath = argv[++i];
        } else if (!path && argv[i][0] != '-') {
            path = argv[i];
        } else {
            std::fputs(c_acHelp, stderr);
            return exitUsage;
        }
    }
    if (!path || (clip + listObjects + dump + dot) > 1 || (outPath && !dot)) {
        std::fputs(c_acHelp, stderr);
        return exitUsage;
    }
    if (dump)
        return DumpTree(path);
    if (dot)
        return WriteDot(path, outPath);
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        std::fprintf(stderr, "mcinspect: cannot open %s\n", path);
        return exitUsage;
    }
    std::printf("file: %s\n", path);
    CMSession session;
    int status = exitOk;
    {
        Inspector inspector(file, listObjects);
        status = clip ? inspector.RunClip() : inspector.Run();
    }
    return status;
}
