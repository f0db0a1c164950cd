#ifndef ZVM_H
#define ZVM_H

// The two classes through which a template engine talks to whoever supplies its values: the argument list
// of a macro call and the data butler that answers the calls. ZVMTemplate is the engine that drives them.

#include <utility>
#include <vector>

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTString.h"

/// The arguments of one macro call, in the order they were written.
class MODELCORE_API ZVMStringList {
public:
    ZVMStringList() = default;
    /// A list holding `elements`.
    explicit ZVMStringList(std::vector<ZVTString> elements) : m_xElements(std::move(elements)) {}

    /// The number of arguments.
    long GetCount() const { return static_cast<long>(m_xElements.size()); }
    /// Argument `index`; the null string outside [0, GetCount()).
    const ZVTString& operator[](long index) const {
        static const ZVTString c_xNone;
        return index < 0 || index >= GetCount() ? c_xNone : m_xElements[static_cast<size_t>(index)];
    }
    /// Appends an argument.
    void Append(const ZVTString& element) { m_xElements.push_back(element); }
    /// Forgets every argument.
    void Clear() { m_xElements.clear(); }

private:
    std::vector<ZVTString> m_xElements;
};

/// Answers the macro calls of a template: a value for a substitution, and the start and each further
/// pass of an iteration. Every operation answers false when it has nothing to give; what it wrote into
/// `result` then does not count.
class MODELCORE_API ZVMDataButler {
public:
    ZVMDataButler() = default;
    ZVMDataButler(const ZVMDataButler&) = default;
    ZVMDataButler& operator=(const ZVMDataButler&) = default;

    /// The value of macro `name` called with `arguments`, into `result`.
    virtual ZVTBoolean SubstituteValue(const ZVTString& name, ZVMStringList& arguments,
                                       ZVTString& result) = 0;
    /// The value of macro `name` called without an argument list, into `result`.
    virtual ZVTBoolean SubstituteValue(const ZVTString& name, ZVTString& result) = 0;
    /// Starts the iteration `name` with `arguments`; false when there is nothing to iterate over.
    virtual ZVTBoolean StartIteration(const ZVTString& name, ZVMStringList& arguments) = 0;
    /// Starts the iteration `name` called without an argument list.
    virtual ZVTBoolean StartIteration(const ZVTString& name) = 0;
    /// Begins the next pass of the running iteration `name`; false when it has ended, after which the
    /// butler holds nothing of it any more.
    virtual ZVTBoolean NextIteration(const ZVTString& name) = 0;
    /// Virtual: butlers are used through this base.
    virtual ~ZVMDataButler() = default;

    /// Whether the butler answers macro `name` at all; an engine asks before it expands anything, so that
    /// a misspelt macro is an error of the template and not an empty value. This base knows every name.
    virtual ZVTBoolean KnowsMacro(const ZVTString& /*name*/) const { return true; }
};

#endif
