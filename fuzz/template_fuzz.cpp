// Parses arbitrary bytes as a template. A failed parse places its error inside the input's lines and
// leaves the template empty. A template that parses is expanded twice against a small fixed butler:
// the butler is asked to go on only with its innermost running iteration, no iteration is left running
// afterwards, both expansions write the same text, one that fails (an unknown macro) writes nothing, and
// a text without tags comes out as it went in, "$$" made '$'.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "platform/ZVMTemplate.h"

namespace {

void Require(bool holds) {
    if (!holds)
        std::abort();
}

// Passes over all iterations of one expansion; bounds the work of deeply nested loops.
constexpr int c_nMaxPasses = 256;

// Values A (text) and B (empty), No (no value), Args (its arguments, which it then clears), Pass and Odd
// (the innermost pass: its number, and whether it is odd); iterations L0, L1 and L3 of that many passes.
class FuzzButler : public ZVMDataButler {
public:
    ZVTBoolean SubstituteValue(const ZVTString& name, ZVMStringList& arguments, ZVTString& result) override {
        if (name != "Args")
            return Value(name, result);
        for (long i = 0; i < arguments.GetCount(); ++i) {
            result += '<';
            result += arguments[i];
        }
        arguments.Clear();
        return true;
    }
    ZVTBoolean SubstituteValue(const ZVTString& name, ZVTString& result) override {
        return Value(name, result);
    }
    ZVTBoolean StartIteration(const ZVTString& name, ZVMStringList& /*arguments*/) override {
        return StartIteration(name);
    }
    ZVTBoolean StartIteration(const ZVTString& name) override {
        const int passes = Passes(name);
        if (passes <= 0)
            return false;
        m_xRunning.push_back({name.str(), 0, passes});
        return true;
    }
    ZVTBoolean NextIteration(const ZVTString& name) override {
        Require(!m_xRunning.empty() && m_xRunning.back().m_sName == name.str());
        Running& top = m_xRunning.back();
        if (top.m_nDone == top.m_nPasses || m_nPasses == c_nMaxPasses) {
            m_xRunning.pop_back();
            return false;
        }
        ++top.m_nDone;
        ++m_nPasses;
        return true;
    }
    ZVTBoolean KnowsMacro(const ZVTString& name) const override {
        static const char* const c_apcKnown[] = {"A", "B", "No", "Args", "Pass", "Odd", "L0", "L1", "L3"};
        return std::any_of(std::begin(c_apcKnown), std::end(c_apcKnown),
                           [&](const char* known) { return name == known; });
    }

    void Reset() { m_nPasses = 0; }
    bool Idle() const { return m_xRunning.empty(); }

private:
    struct Running {
        std::string m_sName;
        int m_nDone;
        int m_nPasses;
    };

    static int Passes(const ZVTString& name) { return name == "L1" ? 1 : name == "L3" ? 3 : 0; }

    ZVTBoolean Value(const ZVTString& name, ZVTString& result) const {
        if (name == "A") {
            result += "a";
            return true;
        }
        if (name == "B")
            return true;
        if (m_xRunning.empty() || (name != "Pass" && name != "Odd"))
            return false;
        const int done = m_xRunning.back().m_nDone;
        if (name == "Odd")
            return done % 2 == 1;
        result += ZVTString(static_cast<long>(done), 10);
        return true;
    }

    std::vector<Running> m_xRunning;
    int m_nPasses = 0;
};

// Whether `error` points at a line of `text` and at most one column past its last character.
bool InsideText(const std::string& text, const ZVMTemplateError& error) {
    std::size_t lineStart = 0;
    for (long line = 1; line < error.m_lLine; ++line) {
        lineStart = text.find('\n', lineStart);
        if (lineStart == std::string::npos)
            return false;
        ++lineStart;
    }
    const std::size_t lineEnd = std::min(text.find('\n', lineStart), text.size());
    return error.m_lLine >= 1 && error.m_lColumn >= 1 &&
           static_cast<std::size_t>(error.m_lColumn) <= lineEnd - lineStart + 1;
}

// What a template without tags writes: its text with each "$$" made one '$'.
std::string Unescaped(const std::string& text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        out += text[i];
        if (text[i] == '$' && i + 1 < text.size() && text[i + 1] == '$')
            ++i;
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    ZVMTemplate parsed;
    ZVMTemplateError error;
    if (!parsed.Parse(text, error)) {
        Require(InsideText(text, error) && !error.m_sMessage.empty() && parsed.IsEmpty());
        return 0;
    }
    FuzzButler butler;
    std::string outputs[2];
    bool expanded[2] = {false, false};
    for (int i = 0; i < 2; ++i) {
        butler.Reset();
        expanded[i] = parsed.Expand(butler, outputs[i], error);
        Require(butler.Idle());
        Require(expanded[i] || (outputs[i].empty() && error.m_sMessage.rfind("unknown macro '", 0) == 0 &&
                                InsideText(text, error)));
    }
    Require(expanded[0] == expanded[1] && outputs[0] == outputs[1]);
    if (text.find("${") == std::string::npos)
        Require(expanded[0] && outputs[0] == Unescaped(text));
    return 0;
}
