#ifndef MCPROPERTYSEMANTICS_H
#define MCPROPERTYSEMANTICS_H

// Rules on one property type of one object type. Accessors fire them around every change; the registry
// that chains them along the type hierarchy builds on these two classes.

#include "foundation/ZVTExport.h"

class MCObject;
class MCProperty;
class MCPropertyAccessor;
class MCPropertySemanticContext;

/// What a change through an accessor tells the rules: the accessor and the flags of the operation.
struct MODELCORE_API MCActiveAccessor {
    MCActiveAccessor(MCPropertyAccessor* accessor, long flags) : m_pxAccessor(accessor), m_lFlags(flags) {}

    MCPropertyAccessor* m_pxAccessor;
    long m_lFlags;
};

/// A rule on a property type. Semantics are as a rule objects of static storage, never deleted through
/// this class.
class MODELCORE_API MCPropertySemantic {
public:
    /// When a rule runs; each value doubles as the interest bit. The values must not change.
    enum mode : unsigned long {
        PreEdit = 0x1,
        PostEdit = 0x2,
        PreDestructon = 0x4,
        PreCalculateData = 0x8,
        PostCalculateData = 0x10,
        CalculateValue = 0x20,
        PostPaste = 0x40,
        ObjectPreDestruction = 0x80,
        InheritedPreEdit = 0x10000,
        InheritedPostEdit = 0x20000
    };
    /// What a rule answers: go on, refuse, or the object is gone. Any answer but resultContinue stops the
    /// firing.
    enum result { resultContinue = 0, resultRefused = 1, resultObjectDestroyed = 2 };

    /// Runs the rule for `property` of `object` in `mode`.
    virtual result Fire(mode nMode, MCObject* object, MCProperty* property,
                        MCPropertySemanticContext* context) = 0;
    /// The OR of the modes the rule wants to hear of.
    virtual unsigned long GetInterests() const = 0;

protected:
    ~MCPropertySemantic() = default;
};

/// The context of a firing: the running accessor and its flags, or null outside an accessor.
class MODELCORE_API MCPropertySemanticContext {
public:
    explicit MCPropertySemanticContext(MCActiveAccessor* accessor = nullptr) : m_pxActiveAccessor(accessor) {}
    virtual ~MCPropertySemanticContext();

    /// The running accessor, null when the firing does not come from one.
    MCActiveAccessor* GetActiveAccessor() const { return m_pxActiveAccessor; }

private:
    MCActiveAccessor* m_pxActiveAccessor;
};

#endif
