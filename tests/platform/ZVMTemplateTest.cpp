// Covers the template engine: the output of each construct, the position and text of each parse error,
// the exact butler calls of nested iterations with a break, standalone lines, the depth limit and the
// check of macro names before any output.

#include "platform/ZVMTemplate.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

// Answers from a table and logs every call. Values are appended to `result`, as Comma does, so a result
// the engine failed to empty shows; Join empties its arguments, so a list the engine failed to copy shows.
class FakeButler : public ZVMDataButler {
public:
    std::map<std::string, std::string> m_xValues{{"Name", "val"}, {"Empty", ""}};
    std::map<std::string, int> m_xLists{{"None", 0}, {"Two", 2}, {"Three", 3}};
    std::vector<std::pair<std::string, int>> m_xRunning;  // name and passes begun, innermost last
    std::string m_sLog;

    ZVTBoolean SubstituteValue(const ZVTString& name, ZVMStringList& arguments, ZVTString& result) override {
        const std::string args = Log("V", name, &arguments);
        if (name != "Join")
            return Value(name.str(), result);
        result += args.c_str();
        arguments.Clear();
        return true;
    }
    ZVTBoolean SubstituteValue(const ZVTString& name, ZVTString& result) override {
        Log("V", name, nullptr);
        return Value(name.str(), result);
    }
    ZVTBoolean StartIteration(const ZVTString& name, ZVMStringList& arguments) override {
        Log("S", name, &arguments);
        return Start(name.str());
    }
    ZVTBoolean StartIteration(const ZVTString& name) override {
        Log("S", name, nullptr);
        return Start(name.str());
    }
    ZVTBoolean NextIteration(const ZVTString& name) override {
        Log("N", name, nullptr);
        if (m_xRunning.empty() || m_xRunning.back().first != name.str())
            throw std::logic_error("NextIteration of an iteration that is not the innermost");
        if (m_xRunning.back().second++ < m_xLists[name.str()])
            return true;
        m_xRunning.pop_back();
        return false;
    }
    ZVTBoolean KnowsMacro(const ZVTString& name) const override {
        static const std::set<std::string> c_xOthers{"Join", "Pass", "IsSecond", "Throw", "Missing"};
        return m_xValues.count(name.str()) || m_xLists.count(name.str()) || c_xOthers.count(name.str());
    }

private:
    // Logs "KIND(NAME)", or "KIND(NAME:[a][b])" for a call with a list, and answers the bracketed list.
    std::string Log(const char* kind, const ZVTString& name, const ZVMStringList* arguments) {
        std::string args;
        for (long i = 0; arguments && i < arguments->GetCount(); ++i)
            args += "[" + (*arguments)[i].str() + "]";
        m_sLog += (m_sLog.empty() ? "" : " ") + std::string(kind) + "(" + name.str() +
                  (arguments ? ":" + args : "") + ")";
        return args;
    }
    bool Start(const std::string& name) {
        if (m_xLists[name] == 0)
            return false;
        m_xRunning.emplace_back(name, 0);
        return true;
    }
    bool Value(const std::string& name, ZVTString& result) {
        if (name == "Throw")
            throw std::runtime_error("butler failed");
        if (name == "IsSecond")
            return !m_xRunning.empty() && m_xRunning.back().second == 2;
        const auto found = m_xValues.find(name);
        if (name == "Pass" && !m_xRunning.empty())
            result += (m_xRunning.back().first + std::to_string(m_xRunning.back().second)).c_str();
        else if (found != m_xValues.end())
            result += found->second.c_str();
        return (name == "Pass" && !m_xRunning.empty()) || found != m_xValues.end();
    }
};

// The output of `text`, or the error of its parse or expansion as "LINE:COLUMN: MESSAGE".
std::string Expanded(const std::string& text, FakeButler& butler) {
    ZVMTemplate parsed;
    ZVMTemplateError error;
    std::string out;
    return parsed.Parse(text, error) && parsed.Expand(butler, out, error) ? out : error.Format();
}

// `depth` nested ifs around an x.
std::string Nested(long depth) {
    std::string open, close;
    for (long i = 0; i < depth; ++i) {
        open += "${if Name}";
        close += "${end}";
    }
    return open + "x" + close;
}

TEST(ZVMTemplateTest, ExpandsEachConstruct) {
    const std::pair<std::string, const char*> cases[] = {
        {"plain\ntext", "plain\ntext"},
        {"a$$b$c$ ${Name}$", "a$b$c$ val$"},
        {"<${Name}|${ Name }|${Missing}|${Empty}>", "<val|val||>"},
        {"${Join}|${Join()}|${Join( )}|${Join(,)}", "|||[][]"},
        {R"(${Join( a b , "x,)}" ,, "q\"\\\n\t" )})", "[a b][x,)}][][q\"\\\n\t]"},
        {"${Join(\n a,\n b)}", "[a][b]"},
        {"${foreach Three}${Pass},${end}.", "Three1,Three2,Three3,."},
        {"${foreach Two}${Join(a)}${Name}${end}", "[a]val[a]val"},
        {"${foreach Two(x, y)}${foreach Two}${Pass}${end};${end}", "Two1Two2;Two1Two2;"},
        {"[${foreach None}x${end}]", "[]"},
        {"${foreach Three}${Pass}${if IsSecond}${break}${end}.${end}|", "Three1.Three2|"},
        {"${if Name}y${else}n${end}${if Missing}y${else}n${end}${if Join()}J${end}", "ynJ"},
        {"${if Missing}y${end}|${if Name()}Y${end}", "|Y"},
        {"a${# note, with ${ and $ }b", "ab"},
        // Standalone block tags take their line; tags inside a line keep the text around them.
        {"a\n  ${if Name}  \nb\n\t${else}\nc\n${end}\nd", "a\nb\nd"},
        {"${# crlf }\r\nx\n${# last line, no break }", "x\n"},
        {"${foreach Two}\r${end}", "\r\r"},  // a lone CR ends no line
        {"x ${if Name}y${end} z\n${Name}\n${if Name}${end}\n", "x y z\nval\n\n"},
        {"${foreach Two}\n  - ${Pass}\n${end}\n", "  - Two1\n  - Two2\n"},
        {Nested(ZVMTemplate::c_nMaxDepth), "x"},
    };
    for (const auto& [text, expected] : cases) {
        SCOPED_TRACE(text);
        FakeButler butler;
        EXPECT_EQ(Expanded(text, butler), expected);
        EXPECT_TRUE(butler.m_xRunning.empty());
    }
}

TEST(ZVMTemplateTest, ReportsMalformedTextWhereItIs) {
    const std::pair<std::string, const char*> cases[] = {
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
    };
    for (const auto& [text, expected] : cases) {
        SCOPED_TRACE(text);
        FakeButler butler;
        EXPECT_EQ(Expanded(text, butler), expected);
    }
}

TEST(ZVMTemplateTest, BreakRunsTheInnermostIterationOut) {
    FakeButler butler;
    EXPECT_EQ(Expanded("${foreach Two}${foreach Three(a)}${if IsSecond}${break}${end}${end}${end}", butler),
              "");
    EXPECT_EQ(butler.m_sLog,
              "S(Two) N(Two)"
              " S(Three:[a]) N(Three) V(IsSecond) N(Three) V(IsSecond) N(Three) N(Three)"
              " N(Two)"
              " S(Three:[a]) N(Three) V(IsSecond) N(Three) V(IsSecond) N(Three) N(Three)"
              " N(Two)");
    EXPECT_TRUE(butler.m_xRunning.empty());
}

// An unknown macro fails before any output; a butler's exception passes through with the output so far;
// a failed parse leaves the template empty.
TEST(ZVMTemplateTest, UnknownMacrosButlerExceptionsAndFailedParses) {
    ZVMTemplate parsed;
    ZVMTemplateError error;
    ASSERT_TRUE(parsed.Parse("text ${Name}\n${foreach Two}${Nmae(x)}${end}${Nmae}", error));
    FakeButler butler;
    std::string out = "kept";
    EXPECT_FALSE(parsed.Expand(butler, out, error));
    EXPECT_EQ(error.Format(), "2:17: unknown macro 'Nmae'");
    EXPECT_EQ(out + "|" + butler.m_sLog, "kept|");

    ASSERT_TRUE(parsed.Parse("a${Throw}b", error));
    out = ">";
    EXPECT_THROW(parsed.Expand(butler, out, error), std::runtime_error);
    EXPECT_EQ(out, ">a");
    EXPECT_FALSE(parsed.Parse("${end}", error));
    EXPECT_TRUE(parsed.IsEmpty() && parsed.Expand(butler, out, error));
    EXPECT_EQ(out, ">a");
}

}  // namespace
