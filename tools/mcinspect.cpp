// mcinspect: prints what a class-diagram model file holds (head, global section, objects by type) and
// says where and how a damaged one goes wrong. Property records carry no length, so the class model is
// registered and each property is read by its own class, into a scratch object.

#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "examples/classmodel/ClassModel.h"

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
};

const char c_acHelp[] =
    "usage: mcinspect [--objects] FILE\n"
    "Prints the head, the global section and a summary of the objects by type of a model file written\n"
    "by the class-diagram host; --objects also lists every object record.\n"
    "exit codes:\n"
    "  0  the file was read to its end\n"
    "  1  bad arguments, or the file cannot be opened\n"
    "  2  bad head: not a model file, a newer format, another company or product, or cut short\n"
    "  3  truncated inside an object record\n"
    "  4  unknown token at top level or inside an object record\n"
    "  5  unknown object or property type\n"
    "  6  damaged global section\n";

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

        // A model, so that it can stand as the persistence root of the file's user-defined properties.
        m_pxScratch =
            static_cast<MCObject*>(MCFactoryRegistry::CreateItem(CMCodes::tModel, nullptr, nullptr, nullptr));
        if (!m_pxScratch)
            return Fail(exitUsage, "cannot make the scratch object");
        int status = exitOk;
        while (status == exitOk) {
            const long offset = m_xStream.tellg();
            char token = 0;
            m_xStream >> token;
            if (m_xStream.fail() || token == MCStream::tokenEndMark)
                break;  // a model file ends where its data ends
            if (token == MCStream::tokenGlobals)
                status = ReadGlobals();
            else if (token == MCStream::tokenObject)
                status = ReadObject(offset);
            else
                status = Fail(exitUnknownToken, "unknown token " + std::to_string(token & 0xFF) +
                                                    " at offset " + std::to_string(offset));
        }
        PrintSummary();
        return status;
    }

private:
    int Fail(int code, const std::string& message) {
        std::fprintf(stderr, "mcinspect: %s\n", message.c_str());
        return code;
    }

    int ReadGlobals() {
        auto map = std::make_unique<MCUDPMap>();
        try {
            MCFactoryRegistry::GetInstance()->RestoreFrom(m_xStream, map.get(), nullptr);
        } catch (const EXBase&) {
            return Fail(exitBadGlobals, "damaged global section");
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
        m_xStream >> object.m_sType >> object.m_lId >> object.m_lOwnerId >> object.m_usFlags;
        const std::string where = "object record at offset " + std::to_string(offset);
        if (m_xStream.fail())
            return Fail(exitTruncated, "truncated in the head of the " + where);
        if (!IsConcrete(object.m_sType, MCFactoryRegistry::flagObject))
            return Fail(exitUnknownType,
                        "unknown object type " + std::to_string(object.m_sType) + " in the " + where);

        std::string name;
        long properties = 0;
        for (;;) {
            char token = 0;
            m_xStream >> token;
            if (m_xStream.fail())
                return Fail(exitTruncated, "truncated in the " + where);
            if (token == MCStream::tokenObjectEnd)
                break;
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

    MCStream m_xStream;
    bool m_bListObjects;
    MCObject* m_pxScratch = nullptr;
    std::map<short, TypeSummary> m_xTypes;
};

}  // namespace

int main(int argc, char** argv) {
    bool listObjects = false;
    const char* path = nullptr;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            std::fputs(c_acHelp, stdout);
            return exitOk;
        }
        if (std::strcmp(argv[i], "--objects") == 0) {
            listObjects = true;
        } else if (!path && argv[i][0] != '-') {
            path = argv[i];
        } else {
            std::fputs(c_acHelp, stderr);
            return exitUsage;
        }
    }
    if (!path) {
        std::fputs(c_acHelp, stderr);
        return exitUsage;
    }
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
        status = inspector.Run();
    }
    return status;
}
