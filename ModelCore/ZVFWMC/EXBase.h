#ifndef EXBASE_H
#define EXBASE_H

// The exception family: small values thrown by value and caught by reference.
// The codes are part of the interface and must not change. Every class is also a
// std::exception, so a host that knows nothing of the family still gets a text;
// a handler that wants the code must put catch (const EXBase&) before any
// catch (const std::exception&) of the same try, which would otherwise take it.

#include <cstddef>
#include <exception>

#include "foundation/ZVTExport.h"
#include "foundation/ZVTReference.h"
#include "foundation/ZVTString.h"

class MCFactoryContext;

/// The argument of EXBase::StandardMessage; reference counted, read by no class of the library.
class MODELCORE_API EXMsgData : public ZVTReference {
public:
    /// An empty message argument.
    EXMsgData();
    ~EXMsgData() override;
};

/// The base of every exception of the library and of its hosts: a code, an optional standard message and a
/// what() text.
class MODELCORE_API EXBase : public std::exception {
public:
    /// The codes of the library's concrete classes, one each; GetExceptionCode answers them. Host codes
    /// should stay clear of 1..codeLast.
    enum exception_code : long {
        codeDuplicateFactory = 1,          ///< EXDuplicateFactory
        codeDuplicateProperty = 2,         ///< EXDuplicateProperty
        codeDuplicateResolution = 3,       ///< EXDuplicateResolution
        codeDuplicateSemantic = 4,         ///< EXDuplicateSemantic
        codeGenericObject = 5,             ///< EXGenericObject
        codeInvalidIter = 6,               ///< EXInvalidIter
        codeMissingFactory = 7,            ///< EXMissingFactory
        codeMissingSemanticHandler = 8,    ///< EXMissingSemanticHandler
        codeNoMapPointer = 9,              ///< EXNoMapPointer
        codeNonOwnedObject = 10,           ///< EXNonOwnedObject
        codeNullOwner = 11,                ///< EXNullOwner
        codeRequiredProperty = 12,         ///< EXRequiredProperty
        codeUnexpected = 13,               ///< EXUnexpected
        codeUnknownToken = 14,             ///< EXUnknownToken
        codeMissingComparisonObject = 15,  ///< EXMissingComparisonObject
        codeInvalidComparison = 16,        ///< EXInvalidComparison
        codeLast = codeInvalidComparison   ///< the highest code the library uses
    };

    /// An exception with the given code; what() names it "EXBase".
    explicit EXBase(long code);
    /// The code given at construction.
    long GetExceptionCode() const;
    /// Shows the exception's standard message, if it has one, and returns the answer; the base shows nothing
    /// and returns 0.
    virtual int StandardMessage(EXMsgData* pData) const;
    /// "EXUnexpected (code 13) at ModelCore/ZVFWMC/MCObject:42": the class, the code given at construction
    /// and the place when the class carries one; held by the exception (copies hold their own), never null,
    /// cut short rather than overflow.
    const char* what() const noexcept override;

protected:
    /// For subclasses: an exception whose what() text begins with `className` (copied; null reads as
    /// "EXBase").
    EXBase(long code, const char* className);
    /// For subclasses that know where they were raised: appends " at file" and, when `line` is not empty,
    /// ":line" to the what() text; a null or empty `file` adds nothing.
    void SetWhatLocation(const char* file, const char* line) noexcept;

    long m_lCode;

private:
    // Built when the exception is made, so that what() neither allocates nor fails.
    static constexpr std::size_t c_nWhatCapacity = 192;
    char m_acWhat[c_nWhatCapacity];
};

/// A fault of the calling code; every concrete exception of the library derives from it.
class MODELCORE_API EXProgrammer : public EXBase {
public:
    /// A programmer fault with the given code; what() names it "EXProgrammer".
    explicit EXProgrammer(long code);

protected:
    /// For subclasses: a programmer fault whose what() text names `className` (null reads as "EXBase").
    EXProgrammer(long code, const char* className);
};

/// A fault that a user caused; the library throws none, hosts derive from it.
class MODELCORE_API EXUser : public EXBase {
public:
    /// A user fault with the given code; what() names it "EXUser".
    explicit EXUser(long code);

protected:
    /// For host subclasses: a user fault whose what() text names `className` (null reads as "EXBase").
    EXUser(long code, const char* className);
};

// The sixteen concrete classes. Constructor arguments are kept in public
// fields so that a handler can see them.

/// Code 1, codeDuplicateFactory: a second factory for a type code; its standard message is
/// MCCodes::msgDuplicateFactory with the type code.
class MODELCORE_API EXDuplicateFactory : public EXProgrammer {
public:
    /// Remembers the type code whose factory came twice.
    explicit EXDuplicateFactory(short type);
    /// Shows MCCodes::msgDuplicateFactory with the type code in decimal and returns its answer; `pData` is
    /// not read.
    int StandardMessage(EXMsgData* pData) const override;
    short m_sType;
};

/// Code 2, codeDuplicateProperty: a second property of one type on an object.
class MODELCORE_API EXDuplicateProperty : public EXProgrammer {
public:
    /// An exception with codeDuplicateProperty.
    EXDuplicateProperty();
};

/// Code 3, codeDuplicateResolution: an id is already taken by another object; both objects are kept for a
/// debugger.
class MODELCORE_API EXDuplicateResolution : public EXProgrammer {
public:
    /// Remembers the object holding the id and the one that asked for it.
    EXDuplicateResolution(void* existing, void* incoming);
    void* m_pxExisting;
    void* m_pxIncoming;
};

/// Code 4, codeDuplicateSemantic: a second semantic where only one may stand.
class MODELCORE_API EXDuplicateSemantic : public EXProgrammer {
public:
    /// Remembers the semantic in place and the one that came second.
    EXDuplicateSemantic(void* existing, void* incoming);
    void* m_pxExisting;
    void* m_pxIncoming;
};

/// Code 5, codeGenericObject: a semantic registered on the generic object type.
class MODELCORE_API EXGenericObject : public EXProgrammer {
public:
    /// An exception with codeGenericObject.
    EXGenericObject();
};

/// Code 6, codeInvalidIter: the value of an iterator that stands on nothing.
class MODELCORE_API EXInvalidIter : public EXProgrammer {
public:
    /// An exception with codeInvalidIter.
    EXInvalidIter();
};

/// Code 7, codeMissingFactory: no factory for a type code.
class MODELCORE_API EXMissingFactory : public EXProgrammer {
public:
    /// Remembers the type code and the creation context (not owned).
    EXMissingFactory(short type, MCFactoryContext* context);
    short m_sType;
    MCFactoryContext* m_pxContext;
};

/// Code 8, codeMissingSemanticHandler: no semantic handler for a type code.
class MODELCORE_API EXMissingSemanticHandler : public EXProgrammer {
public:
    /// Remembers the type code.
    explicit EXMissingSemanticHandler(short type);
    short m_sType;
};

/// Code 9, codeNoMapPointer: a global section read without somewhere to put the user-defined property map.
class MODELCORE_API EXNoMapPointer : public EXProgrammer {
public:
    /// An exception with codeNoMapPointer.
    EXNoMapPointer();
};

/// Code 10, codeNonOwnedObject: an object destroyed through an owner that does not own it.
class MODELCORE_API EXNonOwnedObject : public EXProgrammer {
public:
    /// An exception with codeNonOwnedObject.
    EXNonOwnedObject();
};

/// Code 11, codeNullOwner: a property without an owner.
class MODELCORE_API EXNullOwner : public EXProgrammer {
public:
    /// An exception with codeNullOwner.
    EXNullOwner();
};

/// Code 12, codeRequiredProperty: an object lacks a property that it must have.
class MODELCORE_API EXRequiredProperty : public EXProgrammer {
public:
    /// Remembers the object's type and the missing property's type.
    EXRequiredProperty(short objectType, short propertyType);
    short m_sObjectType;
    short m_sPropertyType;
};

/// Code 13, codeUnexpected: a state the code holds to be impossible, named by source file
/// ("ModelCore/ZVFWMC/MCObject") and line, which what() shows.
class MODELCORE_API EXUnexpected : public EXProgrammer {
public:
    /// Remembers where it was raised; the line is decimal text.
    EXUnexpected(ZVTString file, ZVTString line);
    ZVTString m_xFile;
    ZVTString m_xLine;
};

/// Code 14, codeUnknownToken: a token in a global section that the environment's base class does not know.
class MODELCORE_API EXUnknownToken : public EXProgrammer {
public:
    /// An exception with codeUnknownToken.
    EXUnknownToken();
};

/// Code 15, codeMissingComparisonObject: a comparison without a second object.
class MODELCORE_API EXMissingComparisonObject : public EXProgrammer {
public:
    /// An exception with codeMissingComparisonObject.
    EXMissingComparisonObject();
};

/// Code 16, codeInvalidComparison: a comparison that cannot be made.
class MODELCORE_API EXInvalidComparison : public EXProgrammer {
public:
    /// An exception with codeInvalidComparison.
    EXInvalidComparison();
};

/// Throws EXUnexpected naming `file` and `line` (as decimal text); the one way every unit reports an
/// impossible state.
[[noreturn]] MODELCORE_API void MCThrowUnexpected(const ZVTString& file, long line);

/// Throws EXUnexpected at the current line of the unit whose source path string is `file`.
#define MC_THROW_UNEXPECTED(file) MCThrowUnexpected((file), __LINE__)

#endif
