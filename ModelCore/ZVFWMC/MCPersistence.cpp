#include "ModelCore/ZVFWMC/MCPersistence.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCStreams.h"
#include "platform/HUB.h"

namespace {

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
        m_xCompanyCode = company;

        ZVTString product;
        if (!Read(stream, product))
            return resultStreamFailed;
        if (product != m_xProductCode)
            return resultOtherProduct;
        m_xProductCode = product;

        ZVTString version;
        if (!Read(stream, version))
            return resultStreamFailed;
        m_xProductVersion = version;
        return resultOk;
    } catch (...) {
        return resultStreamFailed;
    }
}
