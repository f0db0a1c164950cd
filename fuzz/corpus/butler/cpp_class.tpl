${# One C++ header for the class the butler is anchored at. }
// ${Property(Name)}.h: generated from class ${Property(Name)} of package ${OwnerProperty(Name)}; do not edit.
#pragma once

#include "model_types.h"
${foreach ForEach(Superclasses)}
#include "${Property(Name)}.h"
${end}

${if Equal(Abstract, 1)}
/// Abstract: it has no instances of its own.
${end}
${if Equal(Interface, 1)}
/// An interface: it declares what other classes implement.
${end}
class ${CppName(Name)}${foreach ForEach(Superclasses)}${IfFirstIter(" : public ", ", public ")}${CppName(Name)}${end} {
public:
    virtual ~${CppName(Name)}() = default;
${foreach ForEachOwned(Attribute)}
${if NotEqual(UpperBound, 1)}
    std::vector<${Property(TypeName)}> ${CppName(Name)};
${else}
    ${Property(TypeName)} ${CppName(Name)}{};
${end}
${end}
${foreach ForEachReferrer(Association, EndA)}
${if Equal(Containment, 1)}
    /// Owned.
${end}
${if NotEqual(UpperBound, 1)}
    std::vector<${ReferenceProperty(EndB, Name)}*> ${CppName(Name)};
${else}
    ${ReferenceProperty(EndB, Name)}* ${CppName(Name)} = nullptr;
${end}
${end}
};
