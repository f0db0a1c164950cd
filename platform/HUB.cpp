#include "platform/HUB.h"

#include <iostream>
#include <sstream>

#include "platform/TGT.h"

namespace {

HUBMessageHandler* c_pxMessageHandler = nullptr;

const ZVTString& NullString() {
    static const ZVTString s_xNull(static_cast<const char*>(nullptr));
    return s_xNull;
}

int Deliver(const HUBMessageRecord& record) {
    if (c_pxMessageHandler != nullptr)
        return c_pxMessageHandler->HandleMessage(record);
    std::cerr << record.Format() << '\n';
    return 1;
}

}  // namespace

// --- HUBMessageParameter

HUBMessageParameter::HUBMessageParameter(long stringCount, long style)
    : m_xStrings(stringCount > 0 ? static_cast<size_t>(stringCount) : 0, NullString()), m_lStyle(style) {}

void HUBMessageParameter::SetString(long index, const ZVTString& value) {
    if (index < 0 || index >= GetStringCount())
        return;
    m_xStrings[static_cast<size_t>(index)] = value;
}

const ZVTString& HUBMessageParameter::GetString(long index) const {
    if (index < 0 || index >= GetStringCount())
        return NullString();
    return m_xStrings[static_cast<size_t>(index)];
}

long HUBMessageParameter::GetStringCount() const {
    return static_cast<long>(m_xStrings.size());
}

long HUBMessageParameter::GetStyle() const {
    return m_lStyle;
}

// --- HUBMessageRecord

std::string HUBMessageRecord::Format() const {
    std::ostringstream out;
    // Styles are bit sets, so they read best in hex.
    out << "message " << m_lMessageId << " (style 0x" << std::hex << static_cast<unsigned long>(m_lStyle)
        << std::dec << ')';
    size_t shown = m_xTexts.size();
    while (shown > 0 && m_xTexts[shown - 1].IsNullString())
        --shown;
    for (size_t i = 0; i < shown; ++i)
        out << (i == 0 ? ": " : ", ") << m_xTexts[i];
    return out.str();
}

// --- HUBMessageHandler

HUBMessageHandler::~HUBMessageHandler() {
    // A handler that dies installed must not be called afterwards.
    if (c_pxMessageHandler == this)
        c_pxMessageHandler = nullptr;
}

HUBScopedMessageHandler::HUBScopedMessageHandler(int answer)
    : m_pxPrevious(HUB::SetMessageHandler(this)), m_nAnswer(answer) {}

HUBScopedMessageHandler::~HUBScopedMessageHandler() {
    if (HUB::GetMessageHandler() == this)
        HUB::SetMessageHandler(m_pxPrevious);
}

int HUBScopedMessageHandler::HandleMessage(const HUBMessageRecord& record) {
    m_xMessages.push_back(record);
    return m_nAnswer;
}

const std::vector<HUBMessageRecord>& HUBScopedMessageHandler::GetMessages() const {
    return m_xMessages;
}

std::string HUBScopedMessageHandler::Log() const {
    std::string log;
    for (const HUBMessageRecord& record : m_xMessages) {
        if (!log.empty())
            log += '\n';
        log += record.Format();
    }
    return log;
}

void HUBScopedMessageHandler::SetAnswer(int answer) {
    m_nAnswer = answer;
}

void HUBScopedMessageHandler::Clear() {
    m_xMessages.clear();
}

// --- HUBInterface, HUBMessage

ZVTBoolean HUBInterface::ShowMessage(long kind, long messageId, HUBMessageParameter& parameter) {
    HUBMessageRecord record;
    record.m_nCall = HUBMessageRecord::callShowMessage;
    record.m_lMessageId = messageId;
    record.m_lKind = kind;
    record.m_lStyle = parameter.GetStyle();
    for (long i = 0; i < parameter.GetStringCount(); ++i)
        record.m_xTexts.push_back(parameter.GetString(i));
    return Deliver(record) != 0;
}

int HUBMessage::DisplayMessage(unsigned int messageId, const char* text, unsigned int style,
                               const char* secondText, text_type type) {
    HUBMessageRecord record;
    record.m_nCall = HUBMessageRecord::callDisplayMessage;
    record.m_lMessageId = static_cast<long>(messageId);
    record.m_lStyle = static_cast<long>(style);
    record.m_lTextType = static_cast<long>(type);
    record.m_xTexts.push_back(ZVTString(text));
    record.m_xTexts.push_back(ZVTString(secondText));
    return Deliver(record);
}

// --- HUB

void HUB::Terminate() {
    HUBProductIdent::ClearProductIdent();
    HUBTargetRegistry::Clear();
    c_pxMessageHandler = nullptr;
}

HUBMessageHandler* HUB::SetMessageHandler(HUBMessageHandler* pHandler) {
    HUBMessageHandler* pPrevious = c_pxMessageHandler;
    c_pxMessageHandler = pHandler;
    return pPrevious;
}

HUBMessageHandler* HUB::GetMessageHandler() {
    return c_pxMessageHandler;
}

// --- HUBProductIdent

HUBProductIdent* HUBProductIdent::c_pxSingleton = nullptr;

HUBProductIdent* HUBProductIdent::GetProductIdent() {
    return c_pxSingleton;
}

void HUBProductIdent::SetProductIdent(const ZVTString& company, const ZVTString& product,
                                      const ZVTString& version, const ZVTString& fileFormatVersion) {
    // Copies first: the arguments may be the current identity's own fields.
    ZVTString xCompany(company), xProduct(product), xVersion(version), xFileFormat(fileFormatVersion);
    if (c_pxSingleton == nullptr)
        c_pxSingleton = new HUBProductIdent();
    c_pxSingleton->m_xCompanyName = xCompany;
    c_pxSingleton->m_xProductName = xProduct;
    c_pxSingleton->m_xVersionName = xVersion;
    c_pxSingleton->m_xFileFormatVersion = xFileFormat;
}

void HUBProductIdent::ClearProductIdent() {
    delete c_pxSingleton;
    c_pxSingleton = nullptr;
}

const ZVTString& HUBProductIdent::GetCompanyName() const {
    return m_xCompanyName;
}

const ZVTString& HUBProductIdent::GetProductName() const {
    return m_xProductName;
}

const ZVTString& HUBProductIdent::GetVersionName() const {
    return m_xVersionName;
}

const ZVTString& HUBProductIdent::GetFileFormatVersion() const {
    return m_xFileFormatVersion;
}
