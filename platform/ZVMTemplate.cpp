#include "platform/ZVMTemplate.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <unordered_map>
#include <utility>

// The program is a flat list of ops run by one loop, so that expansion needs no recursion and no stack of
// its own; blocks become forward jumps patched when their end is parsed:
//   opText    m_uFirst offset into m_sText, m_uSecond length
//   opValue   m_uFirst call
//   opIf      m_uFirst call, m_uSecond where to go when the condition is false (its else branch or end)
//   opJump    m_uSecond where to go (the end of an if, from the end of its then branch)
//   opForEach m_uFirst call, m_uSecond its opLoop; StartIteration, then to the opLoop or past it
//   opLoop    m_uFirst call of its foreach, m_uSecond the first op of the body; NextIteration decides
//   opBreak   m_uFirst call of its foreach, m_uSecond the op after that foreach's opLoop

namespace {

// Texts and op operands are 32-bit offsets.
constexpr std::size_t c_nMaxTextSize = std::numeric_limits<std::uint32_t>::max();

constexpr char c_acForEach[] = "foreach";
constexpr char c_acIf[] = "if";
constexpr char c_acElse[] = "else";
constexpr char c_acEnd[] = "end";
constexpr char c_acBreak[] = "break";

enum Keyword { kwNone, kwForEach, kwIf, kwElse, kwEnd, kwBreak };

Keyword KeywordOf(const std::string& text, std::size_t start, std::size_t length) {
    static const std::pair<const char*, Keyword> c_axKeywords[] = {
        {c_acForEach, kwForEach}, {c_acIf, kwIf}, {c_acElse, kwElse}, {c_acEnd, kwEnd}, {c_acBreak, kwBreak}};
    for (const auto& entry : c_axKeywords) {
        if (text.compare(start, length, entry.first) == 0)
            return entry.second;
    }
    return kwNone;
}

bool IsNameStart(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}

bool IsNameChar(char c) {
    return IsNameStart(c) || (c >= '0' && c <= '9');
}

// Blanks inside a tag, where line breaks may stand too.
bool IsSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// Blanks that may surround a standalone tag on its line.
bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

// A character for a message: itself when printable, its code otherwise.
std::string Quoted(char c) {
    if (c >= ' ' && c <= '~')
        return std::string("'") + c + "'";
    char code[8];
    std::snprintf(code, sizeof code, "'\\x%02X'", static_cast<unsigned char>(c));
    return code;
}

}  // namespace

std::string ZVMTemplateError::Format() const {
    return std::to_string(m_lLine) + ":" + std::to_string(m_lColumn) + ": " + m_sMessage;
}

// Parses in one pass over the text; every helper that detects an error records it and answers false,
// and the callers give up at once.
class ZVMTemplate::Parser {
public:
    Parser(const std::string& text, ZVMTemplate& target, ZVMTemplateError& error)
        : m_rText(text), m_rTarget(target), m_rError(error) {}

    bool Run() {
        if (m_rText.size() >= c_nMaxTextSize)
            return Fail(0, "template too large");
        const std::size_t size = m_rText.size();
        while (m_nPos < size) {
            const void* found = std::memchr(m_rText.data() + m_nPos, '$', size - m_nPos);
            const std::size_t dollar = found ? static_cast<const char*>(found) - m_rText.data() : size;
            m_rTarget.m_sText.append(m_rText, m_nPos, dollar - m_nPos);
            m_nPos = dollar;
            if (dollar == size)
                break;
            const char next = dollar + 1 < size ? m_rText[dollar + 1] : '\0';
            if (next == '{') {
                if (!ParseTag())
                    return false;
                continue;
            }
            // "$$" is one '$'; a '$' before anything else stands for itself.
            m_rTarget.m_sText += '$';
            m_nPos += next == '$' ? 2 : 1;
        }
        if (!m_xBlocks.empty()) {
            const Block& open = m_xBlocks.back();
            return FailAt(open.m_lLine, open.m_lColumn,
                          std::string("'") + (open.m_bForEach ? c_acForEach : c_acIf) +
                              "' opened here is never closed");
        }
        FlushText();
        return true;
    }

private:
    // An open foreach or if block.
    struct Block {
        bool m_bForEach;
        bool m_bHasElse;
        std::size_t m_nOp;          // its opForEach or opIf
        std::size_t m_nElse;        // the opJump at its else, once there is one
        std::size_t m_nFirstBreak;  // its breaks start here in m_xBreaks
        long m_lLine;
        long m_lColumn;
    };

    // Line and column of `offset`. Offsets are asked for in increasing order, so the newlines are counted
    // once over the whole parse.
    void Locate(std::size_t offset, long& line, long& column) {
        if (offset < m_nCounted) {  // never in practice; kept correct all the same
            m_nCounted = 0;
            m_nLineStart = 0;
            m_lLine = 1;
        }
        for (; m_nCounted < offset && m_nCounted < m_rText.size(); ++m_nCounted) {
            if (m_rText[m_nCounted] == '\n') {
                ++m_lLine;
                m_nLineStart = m_nCounted + 1;
            }
        }
        line = m_lLine;
        column = static_cast<long>(offset - m_nLineStart) + 1;
    }

    bool FailAt(long line, long column, const std::string& message) {
        m_rError.m_lLine = line;
        m_rError.m_lColumn = column;
        m_rError.m_sMessage = message;
        return false;
    }

    bool Fail(std::size_t offset, const std::string& message) {
        long line = 0, column = 0;
        Locate(offset, line, column);
        return FailAt(line, column, message);
    }

    bool FailAtTag(const std::string& message) { return FailAt(m_lTagLine, m_lTagColumn, message); }

    bool FailUnclosed() { return FailAtTag("'${' is never closed"); }

    bool AtEnd() const { return m_nPos >= m_rText.size(); }

    void SkipSpace() {
        while (!AtEnd() && IsSpace(m_rText[m_nPos]))
            ++m_nPos;
    }

    void FlushText() {
        const std::string& text = m_rTarget.m_sText;
        if (text.size() > m_nPendingText) {
            Emit(opText, static_cast<std::uint32_t>(m_nPendingText),
                 static_cast<std::uint32_t>(text.size() - m_nPendingText));
            m_nPendingText = text.size();
        }
    }

    std::size_t Emit(OpCode code, std::uint32_t first, std::uint32_t second) {
        m_rTarget.m_xOps.push_back(Op{code, first, second});
        return m_rTarget.m_xOps.size() - 1;
    }

    std::uint32_t Here() const { return static_cast<std::uint32_t>(m_rTarget.m_xOps.size()); }

    // m_nPos is on "${".
    bool ParseTag() {
        m_nTagStart = m_nPos;
        Locate(m_nTagStart, m_lTagLine, m_lTagColumn);
        m_nPos += 2;
        SkipSpace();
        if (AtEnd())
            return FailUnclosed();
        if (m_rText[m_nPos] == '#') {
            const std::size_t close = m_rText.find('}', m_nPos);
            if (close == std::string::npos)
                return FailUnclosed();
            m_nPos = close + 1;
            DropIfStandalone();
            return true;
        }
        const std::size_t wordStart = m_nPos;
        if (!IsNameStart(m_rText[m_nPos]))
            return Fail(m_nPos, "expected a name");
        while (!AtEnd() && IsNameChar(m_rText[m_nPos]))
            ++m_nPos;
        const std::size_t wordLength = m_nPos - wordStart;
        const std::string word = m_rText.substr(wordStart, wordLength);
        const Keyword keyword = KeywordOf(m_rText, wordStart, wordLength);
        const std::size_t afterWord = m_nPos;
        SkipSpace();
        if (AtEnd())
            return FailUnclosed();
        const char next = m_rText[m_nPos];
        const bool spaced = m_nPos > afterWord;
        switch (keyword) {
            case kwNone:
                if (next == '}' || (next == '(' && !spaced)) {
                    std::uint32_t call = 0;
                    if (!ParseCall(wordStart, call))
                        return false;
                    FlushText();
                    Emit(opValue, call, 0);
                    return true;
                }
                if (spaced && IsNameStart(next))
                    return Fail(wordStart, "unknown directive '" + word + "'");
                return Fail(m_nPos, "unexpected " + Quoted(next) + " after '" + word + "'");
            case kwForEach:
            case kwIf: {
                if (!spaced || !IsNameStart(next))
                    return Fail(m_nPos, "expected a name after '" + word + "'");
                std::uint32_t call = 0;
                return ParseCall(m_nPos, call) && OpenBlock(keyword == kwForEach, call);
            }
            case kwElse:
            case kwEnd:
            case kwBreak:
                if (next != '}')
                    return Fail(m_nPos, "unexpected " + Quoted(next) + " after '" + word + "'");
                ++m_nPos;
                DropIfStandalone();
                return keyword == kwElse ? Else() : keyword == kwEnd ? End() : Break();
        }
        return true;
    }

    // A name at `nameStart`, then perhaps an argument list, then the closing '}'; answers the index of the
    // call in m_xCalls.
    bool ParseCall(std::size_t nameStart, std::uint32_t& call) {
        m_nPos = nameStart;
        while (!AtEnd() && IsNameChar(m_rText[m_nPos]))
            ++m_nPos;
        const std::string name = m_rText.substr(nameStart, m_nPos - nameStart);
        Call parsed{NameIndex(name, nameStart), false, ZVMStringList()};
        if (!AtEnd() && m_rText[m_nPos] == '(') {
            parsed.m_bHasList = true;
            if (!ParseArguments(parsed.m_xArguments))
                return false;
        }
        SkipSpace();
        if (AtEnd())
            return FailUnclosed();
        if (m_rText[m_nPos] != '}') {
            return Fail(m_nPos, "unexpected " + Quoted(m_rText[m_nPos]) + " after '" +
                                    (parsed.m_bHasList ? std::string(")") : name) + "'");
        }
        ++m_nPos;
        call = static_cast<std::uint32_t>(m_rTarget.m_xCalls.size());
        m_rTarget.m_xCalls.push_back(std::move(parsed));
        return true;
    }

    std::uint32_t NameIndex(const std::string& name, std::size_t offset) {
        const auto known = m_xNameIndex.find(name);
        if (known != m_xNameIndex.end())
            return known->second;
        const auto index = static_cast<std::uint32_t>(m_rTarget.m_xNames.size());
        Name entry{ZVTString(name), 0, 0};
        Locate(offset, entry.m_lLine, entry.m_lColumn);
        m_rTarget.m_xNames.push_back(std::move(entry));
        m_xNameIndex.emplace(name, index);
        return index;
    }

    // m_nPos is on '('; leaves it after ')'.
    bool ParseArguments(ZVMStringList& arguments) {
        ++m_nPos;
        SkipSpace();
        if (!AtEnd() && m_rText[m_nPos] == ')') {
            ++m_nPos;
            return true;
        }
        std::string argument;
        for (;;) {
            SkipSpace();
            if (AtEnd())
                return FailUnclosed();
            argument.clear();
            if (m_rText[m_nPos] == '"') {
                if (!ParseString(argument))
                    return false;
                SkipSpace();
                if (AtEnd())
                    return FailUnclosed();
                const char after = m_rText[m_nPos];
                if (after != ',' && after != ')')
                    return Fail(m_nPos, "expected ',' or ')' after a string, not " + Quoted(after));
            } else if (!ParseBare(argument)) {
                return false;
            }
            arguments.Append(ZVTString(argument));
            if (m_rText[m_nPos++] == ')')
                return true;
        }
    }

    // m_nPos is on the opening quote; leaves it after the closing one.
    bool ParseString(std::string& value) {
        const std::size_t quote = m_nPos++;
        for (;;) {
            if (AtEnd())
                return Fail(quote, "unterminated string");
            const char c = m_rText[m_nPos];
            if (c == '"') {
                ++m_nPos;
                return true;
            }
            if (c != '\\') {
                value += c;
                ++m_nPos;
                continue;
            }
            if (m_nPos + 1 >= m_rText.size())
                return Fail(quote, "unterminated string");
            switch (m_rText[m_nPos + 1]) {
                case '"':
                    value += '"';
                    break;
                case '\\':
                    value += '\\';
                    break;
                case 'n':
                    value += '\n';
                    break;
                case 't':
                    value += '\t';
                    break;
                default:
                    return Fail(m_nPos, "unknown escape '\\" + std::string(1, m_rText[m_nPos + 1]) + "'");
            }
            m_nPos += 2;
        }
    }

    // Up to the next ',' or ')', which stays at m_nPos; blanks around the word are not part of it.
    bool ParseBare(std::string& value) {
        const std::size_t start = m_nPos;
        for (; !AtEnd(); ++m_nPos) {
            const char c = m_rText[m_nPos];
            if (c == ',' || c == ')')
                break;
            if (c == '}')
                return Fail(m_nPos, "missing ')'");
            if (c == '"' || c == '(' || c == '$' || c == '{')
                return Fail(m_nPos, Quoted(c) + " is not allowed in a bare argument");
        }
        if (AtEnd())
            return FailUnclosed();
        std::size_t end = m_nPos;
        while (end > start && IsSpace(m_rText[end - 1]))
            --end;
        value.assign(m_rText, start, end - start);
        return true;
    }

    // A block tag alone on its line takes the line with it: the blanks before it, already copied as text,
    // and the blanks and line break after it, not yet read.
    void DropIfStandalone() {
        std::size_t lineStart = m_nTagStart;
        while (lineStart > 0 && IsBlank(m_rText[lineStart - 1]))
            --lineStart;
        if (lineStart > 0 && m_rText[lineStart - 1] != '\n')
            return;
        std::size_t after = m_nPos;
        while (after < m_rText.size() && IsBlank(m_rText[after]))
            ++after;
        if (after < m_rText.size()) {
            if (m_rText[after] == '\r' && after + 1 < m_rText.size() && m_rText[after + 1] == '\n')
                ++after;
            if (m_rText[after] != '\n')
                return;
            ++after;
        }
        std::string& text = m_rTarget.m_sText;
        text.resize(text.size() - (m_nTagStart - lineStart));
        m_nPos = after;
    }

    bool OpenBlock(bool forEach, std::uint32_t call) {
        if (static_cast<long>(m_xBlocks.size()) >= c_nMaxDepth)
            return FailAtTag("blocks nested deeper than " + std::to_string(c_nMaxDepth));
        DropIfStandalone();
        FlushText();
        const std::size_t op = Emit(forEach ? opForEach : opIf, call, 0);
        m_xBlocks.push_back(Block{forEach, false, op, 0, m_xBreaks.size(), m_lTagLine, m_lTagColumn});
        return true;
    }

    bool Else() {
        if (m_xBlocks.empty() || m_xBlocks.back().m_bForEach)
            return FailAtTag("'else' without an open 'if'");
        Block& block = m_xBlocks.back();
        if (block.m_bHasElse)
            return FailAtTag("second 'else' in one 'if'");
        FlushText();
        block.m_bHasElse = true;
        block.m_nElse = Emit(opJump, 0, 0);
        m_rTarget.m_xOps[block.m_nOp].m_uSecond = Here();
        return true;
    }

    bool End() {
        if (m_xBlocks.empty())
            return FailAtTag("'end' without an open block");
        FlushText();
        const Block block = m_xBlocks.back();
        m_xBlocks.pop_back();
        std::vector<Op>& ops = m_rTarget.m_xOps;
        if (!block.m_bForEach) {
            ops[block.m_bHasElse ? block.m_nElse : block.m_nOp].m_uSecond = Here();
            return true;
        }
        const std::uint32_t call = ops[block.m_nOp].m_uFirst;
        const std::size_t loop = Emit(opLoop, call, static_cast<std::uint32_t>(block.m_nOp + 1));
        ops[block.m_nOp].m_uSecond = static_cast<std::uint32_t>(loop);
        for (std::size_t i = block.m_nFirstBreak; i < m_xBreaks.size(); ++i)
            ops[m_xBreaks[i]].m_uSecond = Here();
        m_xBreaks.resize(block.m_nFirstBreak);
        return true;
    }

    bool Break() {
        // Bounded by c_nMaxDepth, so the search keeps the parse linear.
        const auto forEach = std::find_if(m_xBlocks.rbegin(), m_xBlocks.rend(),
                                          [](const Block& block) { return block.m_bForEach; });
        if (forEach == m_xBlocks.rend())
            return FailAtTag("'break' outside 'foreach'");
        FlushText();
        m_xBreaks.push_back(Emit(opBreak, m_rTarget.m_xOps[forEach->m_nOp].m_uFirst, 0));
        return true;
    }

    const std::string& m_rText;
    ZVMTemplate& m_rTarget;
    ZVMTemplateError& m_rError;
    std::size_t m_nPos = 0;
    std::size_t m_nTagStart = 0;
    long m_lTagLine = 0;
    long m_lTagColumn = 0;
    std::size_t m_nPendingText = 0;  // m_sText from here on is not yet in an op
    std::size_t m_nCounted = 0;      // Locate has counted the newlines before this offset
    std::size_t m_nLineStart = 0;
    long m_lLine = 1;
    std::vector<Block> m_xBlocks;
    std::vector<std::size_t> m_xBreaks;  // opBreak ops whose foreach is still open
    std::unordered_map<std::string, std::uint32_t> m_xNameIndex;
};

ZVTBoolean ZVMTemplate::Parse(const std::string& text, ZVMTemplateError& error) {
    ZVMTemplate parsed;
    if (!Parser(text, parsed, error).Run()) {
        *this = ZVMTemplate();
        return false;
    }
    *this = std::move(parsed);
    return true;
}

ZVTBoolean ZVMTemplate::Substitute(ZVMDataButler& butler, const Call& call, ZVMStringList& arguments,
                                   ZVTString& result) const {
    // Emptied, not replaced, so that its buffer serves every call of the expansion.
    result.Remove(0, result.Length());
    const ZVTString& name = m_xNames[call.m_uName].m_xName;
    if (!call.m_bHasList)
        return butler.SubstituteValue(name, result);
    // The butler may change the list: it gets a copy, made in the storage of the last one.
    arguments = call.m_xArguments;
    return butler.SubstituteValue(name, arguments, result);
}

ZVTBoolean ZVMTemplate::Expand(ZVMDataButler& butler, std::string& out, ZVMTemplateError& error) const {
    for (const Name& name : m_xNames) {
        if (!butler.KnowsMacro(name.m_xName)) {
            error.m_lLine = name.m_lLine;
            error.m_lColumn = name.m_lColumn;
            error.m_sMessage = "unknown macro '" + name.m_xName.str() + "'";
            return false;
        }
    }
    ZVMStringList arguments;
    ZVTString result{std::string()};
    std::size_t pc = 0;
    while (pc < m_xOps.size()) {
        const Op& op = m_xOps[pc];
        switch (op.m_eCode) {
            case opText:
                out.append(m_sText, op.m_uFirst, op.m_uSecond);
                ++pc;
                break;
            case opValue:
                if (Substitute(butler, m_xCalls[op.m_uFirst], arguments, result))
                    out += result.str();
                ++pc;
                break;
            case opIf:
                pc = Substitute(butler, m_xCalls[op.m_uFirst], arguments, result) ? pc + 1 : op.m_uSecond;
                break;
            case opJump:
                pc = op.m_uSecond;
                break;
            case opForEach: {
                const Call& call = m_xCalls[op.m_uFirst];
                const ZVTString& name = m_xNames[call.m_uName].m_xName;
                ZVTBoolean started = false;
                if (call.m_bHasList) {
                    arguments = call.m_xArguments;
                    started = butler.StartIteration(name, arguments);
                } else {
                    started = butler.StartIteration(name);
                }
                pc = started ? op.m_uSecond : op.m_uSecond + 1;
                break;
            }
            case opLoop:
                pc = butler.NextIteration(m_xNames[m_xCalls[op.m_uFirst].m_uName].m_xName) ? op.m_uSecond
                                                                                           : pc + 1;
                break;
            case opBreak: {
                // Runs the iteration out, so that the butler lets go of it as at its natural end.
                const ZVTString& name = m_xNames[m_xCalls[op.m_uFirst].m_uName].m_xName;
                while (butler.NextIteration(name)) {
                }
                pc = op.m_uSecond;
                break;
            }
        }
    }
    return true;
}
