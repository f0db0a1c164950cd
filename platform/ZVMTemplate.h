#ifndef ZVMTEMPLATE_H
#define ZVMTEMPLATE_H

// The macro engine: a small template language whose macro calls a ZVMDataButler answers. The language is
// described in docs/templates.md.

#include <cstdint>
#include <string>
#include <vector>

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTString.h"
#include "platform/ZVM.h"

/// Where and why a template failed to parse or to expand; positions count from 1, columns in bytes.
struct MODELCORE_API ZVMTemplateError {
    long m_lLine = 0;
    long m_lColumn = 0;
    std::string m_sMessage;

    /// The error as "LINE:COLUMN: MESSAGE".
    std::string Format() const;
};

/// A parsed template: Parse compiles text into a compact program that Expand runs against a butler as
/// often as wanted. The template keeps no reference to the text it was parsed from nor to any butler.
class MODELCORE_API ZVMTemplate {
public:
    /// The deepest nesting of foreach and if blocks that Parse accepts.
    static constexpr long c_nMaxDepth = 64;

    /// Replaces the template with `text` parsed; on malformed text answers false, fills `error` and
    /// leaves the template empty. `error` is untouched on success.
    ZVTBoolean Parse(const std::string& text, ZVMTemplateError& error);
    /// Appends the expansion against `butler` to `out`. When the butler does not know a macro of the
    /// template, answers false with `error` filled and appends nothing; an exception of the butler passes
    /// through unchanged, leaving in `out` what was expanded before it. An empty template appends nothing.
    ZVTBoolean Expand(ZVMDataButler& butler, std::string& out, ZVMTemplateError& error) const;
    /// Whether the template produces nothing and calls no macro: never parsed, failed, or parsed from "".
    ZVTBoolean IsEmpty() const { return m_xOps.empty(); }

private:
    class Parser;

    // One step of the program; what the two operands mean depends on the code (see ZVMTemplate.cpp).
    enum OpCode : std::uint8_t { opText, opValue, opIf, opJump, opForEach, opLoop, opBreak };
    struct Op {
        OpCode m_eCode;
        std::uint32_t m_uFirst;
        std::uint32_t m_uSecond;
    };
    // A macro call as written: the name by index into m_xNames, so that each distinct name is stored and
    // checked once.
    struct Call {
        std::uint32_t m_uName;
        ZVTBoolean m_bHasList;
        ZVMStringList m_xArguments;
    };
    // A distinct macro name and where the template first calls it.
    struct Name {
        ZVTString m_xName;
        long m_lLine;
        long m_lColumn;
    };

    ZVTBoolean Substitute(ZVMDataButler& butler, const Call& call, ZVMStringList& arguments,
                          ZVTString& result) const;

    std::vector<Op> m_xOps;
    std::vector<Call> m_xCalls;
    std::vector<Name> m_xNames;
    std::string m_sText;  // every literal text of the template, end to end; opText ops point into it
};

#endif
