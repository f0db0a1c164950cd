${# The declarations every class header of a model needs; anchored at the model. }
// model_types.h: generated from model ${Property(Name)}; do not edit.
#pragma once

#include <string>
#include <vector>

${foreach ForEachInTree(DataType)}
${if TypeNameEquals(Enum)}
enum class ${CppName(Name)} {
${foreach ForEachOwned(EnumLiteral)}
    ${CppName(Name)} = ${Property(LiteralValue, 0)},
${end}
};
${else}
${if Equal(Opaque, 1)}
struct ${Property(CppType)} {};
${end}
${end}
${end}

${foreach ForEachInTree(Class)}
class ${CppName(Name)};
${end}
