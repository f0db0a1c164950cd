#ifndef HUB_H
#define HUB_H

// Stand-in for the interface library: numbered messages and the product
// identity. It holds no message texts; every message goes to the host's
// handler, or to standard error as one line when none is installed.

#include <string>
#include <vector>

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTString.h"

/// The parameter block of HUBInterface::ShowMessage: a fixed number of text slots, filled by index from 0,
/// and a style.
class MODELCORE_API HUBMessageParameter {
public:
    /// Makes `stringCount` unfilled (null) slots; a negative count makes none.
    HUBMessageParameter(long stringCount, long style);

    /// Fills slot `index`; an index outside [0, GetStringCount()) is ignored, as a message must never bring
    /// its caller down.
    void SetString(long index, const ZVTString& value);
    /// The text of slot `index`; the null string for an unfilled slot or an index outside the slots.
    const ZVTString& GetString(long index) const;
    /// The number of slots given at construction.
    long GetStringCount() const;
    /// The style given at construction, passed through untouched.
    long GetStyle() const;

private:
    std::vector<ZVTString> m_xStrings;
    long m_lStyle;
};

/// One numbered message as a message handler receives it.
struct MODELCORE_API HUBMessageRecord {
    /// Which call raised the message.
    enum call_type { callShowMessage = 0, callDisplayMessage = 1 };

    call_type m_nCall = callShowMessage;
    long m_lMessageId = 0;
    long m_lKind = 0;  ///< ShowMessage's kind; 0 for DisplayMessage.
    long m_lStyle = 0;
    long m_lTextType = 0;  ///< DisplayMessage's text type; 0 for ShowMessage.
    /// ShowMessage: every slot in order. DisplayMessage: always two, the text and the second text (null
    /// strings for null pointers).
    std::vector<ZVTString> m_xTexts;

    /// The record as one line without newline, "message 601 (style 0x10): 77": texts joined by ", ", trailing
    /// null texts left out.
    std::string Format() const;
};

/// Receives every numbered message while installed with HUB::SetMessageHandler; the host owns it, and
/// destroying it while installed uninstalls it.
class MODELCORE_API HUBMessageHandler {
public:
    virtual ~HUBMessageHandler();
    /// Answers one message: ShowMessage returns (answer != 0), DisplayMessage returns the answer itself.
    virtual int HandleMessage(const HUBMessageRecord& record) = 0;
};

/// Installs itself as the message handler for its lifetime and records every message; scopes nest, innermost
/// first out.
class MODELCORE_API HUBScopedMessageHandler : public HUBMessageHandler {
public:
    /// Installs this handler, remembering the one it replaces; every message is answered with `answer`.
    explicit HUBScopedMessageHandler(int answer = 1);
    /// Puts the replaced handler back, unless this one was already replaced or removed (HUB::Terminate,
    /// SetMessageHandler).
    ~HUBScopedMessageHandler() override;
    HUBScopedMessageHandler(const HUBScopedMessageHandler&) = delete;
    HUBScopedMessageHandler& operator=(const HUBScopedMessageHandler&) = delete;

    /// Records the message and gives the configured answer.
    int HandleMessage(const HUBMessageRecord& record) override;
    /// Every message received so far, oldest first.
    const std::vector<HUBMessageRecord>& GetMessages() const;
    /// The received messages formatted (HUBMessageRecord::Format) and joined by "\n"; empty when none came.
    std::string Log() const;
    /// Changes the answer given to later messages.
    void SetAnswer(int answer);
    /// Forgets the messages received so far.
    void Clear();

private:
    HUBMessageHandler* m_pxPrevious;
    std::vector<HUBMessageRecord> m_xMessages;
    int m_nAnswer;
};

/// Shows numbered messages of the interface's table, with their texts in a parameter block.
class MODELCORE_API HUBInterface {
public:
    /// Shows message `messageId`; returns the handler's answer as a boolean, true when no handler is
    /// installed.
    static ZVTBoolean ShowMessage(long kind, long messageId, HUBMessageParameter& parameter);
};

/// Shows numbered messages with up to two texts given directly.
class MODELCORE_API HUBMessage {
public:
    /// How the texts are to be read; values other than textPlain are passed through to the handler untouched.
    enum text_type : int { textPlain = 0 };

    /// Shows message `messageId` (null texts are allowed); returns the handler's answer, 1 when no handler is
    /// installed.
    static int DisplayMessage(unsigned int messageId, const char* text, unsigned int style,
                              const char* secondText, text_type type);
};

/// The lifecycle of the interface library and the host's hook on its messages.
class MODELCORE_API HUB {
public:
    /// Ends the library's services: clears the product identity and uninstalls the message handler without
    /// deleting it; both can be set up again.
    static void Terminate();
    /// Installs `pHandler` (null brings back the standard-error line) and returns the handler it replaces;
    /// the caller keeps ownership.
    static HUBMessageHandler* SetMessageHandler(HUBMessageHandler* pHandler);
    /// The installed handler, null when messages go to standard error.
    static HUBMessageHandler* GetMessageHandler();
};

/// The identity of the running product that a stored model's head records; one per process, set up by the
/// host.
class MODELCORE_API HUBProductIdent {
public:
    /// The identity, or null until the host has set one (and again after ClearProductIdent or
    /// HUB::Terminate).
    static HUBProductIdent* GetProductIdent();
    /// Sets the identity; an existing one is overwritten in place, so a pointer from GetProductIdent stays
    /// valid.
    static void SetProductIdent(const ZVTString& company, const ZVTString& product, const ZVTString& version,
                                const ZVTString& fileFormatVersion);
    /// Destroys the identity; pointers and references taken from it dangle afterwards.
    static void ClearProductIdent();
    HUBProductIdent(const HUBProductIdent&) = delete;
    HUBProductIdent& operator=(const HUBProductIdent&) = delete;

    /// The company name, compared when a stored model is opened.
    const ZVTString& GetCompanyName() const;
    /// The product name, compared when a stored model is opened.
    const ZVTString& GetProductName() const;
    /// The product's version text, recorded for information only.
    const ZVTString& GetVersionName() const;
    /// The file format version as text, up to four numbers separated by commas ("2, 1, 0, 0").
    const ZVTString& GetFileFormatVersion() const;

private:
    HUBProductIdent() = default;

    ZVTString m_xCompanyName;
    ZVTString m_xProductName;
    ZVTString m_xVersionName;
    ZVTString m_xFileFormatVersion;

    static HUBProductIdent* c_pxSingleton;
};

#endif
