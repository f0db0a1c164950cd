// The template engine: the output of each construct (standalone lines and the depth limit included), and
// the position and text of each parse error.

#include "platform/ZVMTemplate.h"

#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <utility>

namespace {

// Answers a few names. Values are appended to `result`, as Comma does, so a result the engine failed to
// empty shows; Join empties its arguments, so a list the engine failed to copy shows.
struct FakeButler : ZVMDataButler {
    std::vector<std::pair<std::string, int>> m_xRunning;  // name and passes begun, innermost last

    ZVTBoolean SubstituteValue(const ZVTString& name, ZVMStringList& arguments, ZVTString& result) override {
        if (name != "Join")
            return SubstituteValue(name, result);
        for (long i = 0; i < arguments.GetCount(); ++i)
            result += ("[" + arguments[i].str() + "]").c_str();
        arguments.Clear();
        return true;
    }
    ZVTBoolean SubstituteValue(const ZVTString& name, ZVTString& result) override {
        if (name == "Throw")
            throw std::runtime_error("butler failed");
        if (name == "IsSecond")
            return !m_xRunning.empty() && m_xRunning.back().second == 2;
        const bool passing = name == "Pass" && !m_xRunning.empty();
        if (passing)
            result += (m_xRunning.back().first + std::to_string(m_xRunning.back().second)).c_str();
        else if (name == "Name")
            result += "val";
        return passing || name == "Name" || name == "Empty";
    }
    ZVTBoolean KnowsMacro(const ZVTString& name) const override { return name != "Nmae"; }
    ZVTBoolean StartIteration(const ZVTString& name, ZVMStringList&) override { return StartIteration(name); }
    ZVTBoolean StartIteration(const ZVTString& name) override {
        if (m_xLists[name.str()] == 0)
            return false;
        m_xRunning.emplace_back(name.str(), 0);
        return true;
    }
    ZVTBoolean NextIteration(const ZVTString& name) override {
        if (m_xRunning.empty() || m_xRunning.back().first != name.str())
            throw std::logic_error("NextIteration of an iteration that is not the innermost");
        if (m_xRunning.back().second++ < m_xLists[name.str()])
            return true;
        m_xRunning.pop_back();
        return false;
    }

    std::map<std::string, int> m_xLists{{"None", 0}, {"Two", 2}, {"Three", 3}};
};

// The output of `text`, or what was output before its expansion failed or threw and the error as
// "LINE:COLUMN: MESSAGE". A failed parse must not leave the template parsed before it.
std::string Expanded(const std::string& text) {
    ZVMTemplate parsed;
    ZVMTemplateError error;
    FakeButler butler;
    std::string out;
    parsed.Parse("stale", error);
    if (!parsed.Parse(text, error))
        return error.Format() + (parsed.IsEmpty() ? "" : " (a template left)");
    try {
        if (!parsed.Expand(butler, out, error))
            return out + error.Format();
    } catch (const std::runtime_error& thrown) {
        return out + " threw " + thrown.what();
    }
    return butler.m_xRunning.empty() ? out : out + " (an iteration left running)";
}

// `depth` nested ifs around an x.
std::string Nested(long depth) {
    std::string text = "x";
    for (long i = 0; i < depth; ++i)
        text = "${if Name}" + text + "${end}";
    return text;
}

TEST(ZVMTemplateTest, ExpandsEachConstructOrReportsWhereTheTextIsMalformed) {
    const std::pair<std::string, const char*> cases[] = {
        {"a$$b$c$ ${Name}$", "a$b$c$ val$"},
        {"<${ Name }|${Missing}|${Empty}>", "<val||>"},
        {"a${Throw}b", "a threw butler failed"},
        {"${Join}|${Join()}|${Join( )}|${Join(,)}", "|||[][]"},
        {R"(${Join( a b , "x,)}" ,, "q\"\\\n\t" )})", "[a b][x,)}][][q\"\\\n\t]"},
        {"${foreach Two}${Join(a)}${Name}${end}", "[a]val[a]val"},
        {"${foreach Two(x, y)}${foreach Two}${Pass}${end};${end}", "Two1Two2;Two1Two2;"},
        {"[${foreach None}x${end}]", "[]"},
        {"${foreach Three}${Pass}${if IsSecond}!${break}${end}.${end}|", "Three1.Three2!|"},
        {"${if Name}y${else}n${end}${if Missing}y${else}n${end}${if Join()}J${end}", "ynJ"},
        {"${if Missing}y${end}|${if Name()}Y${end}", "|Y"},
        // Standalone block tags take their line; tags inside a line keep the text around them.
        {"a\n  ${if Name}  \nb\n\t${else}\nc\n${end}\nd", "a\nb\nd"},
        {"${# crlf }\r\nx\n${# last line, no break }", "x\n"},
        {"${foreach Two}\r${end}", "\r\r"},  // a lone CR ends no line
        {"${if Name}\n${end}x\ny", "x\ny"},  // text after a tag keeps the tag's line
        {"${foreach Two}\n  - ${Pass}\n${end}\n", "  - Two1\n  - Two2\n"},
        {Nested(ZVMTemplate::c_nMaxDepth), "x"},
        // Malformed text: where and what.
        {"${Name", "1:1: '${' is never closed"},
        {"ab\n  ${# open", "2:3: '${' is never closed"},
        {"${Join(a,", "1:1: '${' is never closed"},
        {"${}", "1:3: expected a name"},
        {"${ 1x}", "1:4: expected a name"},
        {"${Na-me}", "1:5: unexpected '-' after 'Na'"},
        {"${Name\x01}", "1:7: unexpected '\\x01' after 'Name'"},
        {"${_n\x7f}", "1:5: unexpected '\\x7F' after '_n'"},
        {"${Join(\"ab)}", "1:8: unterminated string"},
        {"${Join(\"\\q\")}", "1:9: unknown escape '\\q'"},
        {"${Join(a}", "1:9: missing ')'"},
        {"${Join(a{b)}", "1:9: '{' is not allowed in a bare argument"},
        {"${Join(\"a\" b)}", "1:12: expected ',' or ')' after a string, not 'b'"},
        {"${Join(a) x}", "1:11: unexpected 'x' after ')'"},
        {"${forech X}", "1:3: unknown directive 'forech'"},
        {"${foreach}", "1:10: expected a name after 'foreach'"},
        {"${if(Name)}", "1:5: expected a name after 'if'"},
        {"${foreach Two x}", "1:15: unexpected 'x' after 'Two'"},
        {"${end x}", "1:7: unexpected 'x' after 'end'"},
        {"${Name +}", "1:8: unexpected '+' after 'Name'"},
        {"x\n ${end}", "2:2: 'end' without an open block"},
        {"${foreach Two}${else}${end}", "1:15: 'else' without an open 'if'"},
        {"${if Name}${else}${else}${end}", "1:18: second 'else' in one 'if'"},
        {"${if Name}${break}${end}", "1:11: 'break' outside 'foreach'"},
        {"${foreach Two}\n${if Name}\n${end}\n  ${if Name}", "4:3: 'if' opened here is never closed"},
        {"${Name ", "1:1: '${' is never closed"},
        {"${Join(a", "1:1: '${' is never closed"},
        {"${Join(\"a", "1:8: unterminated string"},
        {"${Join(\"a\"", "1:1: '${' is never closed"},
        {"${Join(a) ", "1:1: '${' is never closed"},
        {"${Join(a$b)}", "1:9: '$' is not allowed in a bare argument"},
        {"${Join(a\"b)}", "1:9: '\"' is not allowed in a bare argument"},
        {"${foreach\tTwo x}", "1:15: unexpected 'x' after 'Two'"},
        {"${if\r\nName x}", "2:6: unexpected 'x' after 'Name'"},
        {Nested(ZVMTemplate::c_nMaxDepth + 1), "1:641: blocks nested deeper than 64"},
        {"text ${Name}\n${foreach Two}${Nmae(x)}${end}", "2:17: unknown macro 'Nmae'"},  // no output
    };
    for (const auto& [text, expected] : cases) {
        SCOPED_TRACE(text);
        EXPECT_EQ(Expanded(text), expected);
    }
}

}  // namespace
