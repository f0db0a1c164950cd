#ifndef CLASSMODELBUTLER_H
#define CLASSMODELBUTLER_H

// Text generation from class diagrams: a data butler with the class model's own macros beside the core's,
// and the C++ header generator built on it and the templates in examples/templates/.

#include <string>
#include <vector>

#include "ModelCore/ZVFWMC/MCDataButler.h"

class MCObject;

/// The core's macros and four of the class model's, which walk what the core's ForEach cannot reach
/// (ownees, subtrees and the holders of references) and spell names for C++:
///
///   ForEachOwned(Type[, breakOn])           the ownees of current of Type (or a subtype), in owner order
///   ForEachInTree(Type[, breakOn])          the objects of Type below current, depth first, owner first
///   ForEachReferrer(Type, Reference[, breakOn])
///                                           the objects of Type whose single reference Reference holds
///                                           current, in the order they were made
///   CppName(Property)                       the property's text as a C++ identifier: a keyword gets "_"
///                                           appended and a character no identifier may hold becomes "_"
///
/// Type and property names are those of the default nomenclature. An iteration over nothing answers
/// false and starts nothing, as ForEach does.
class CMDataButler : public MCDataButler {
public:
    /// A butler whose anchor and first current object is `anchor`.
    explicit CMDataButler(MCObject* anchor);
};

/// The C++ headers of a class diagram: "model_types.h" with the declarations every class header needs
/// (opaque data types, enums, a forward declaration of each class), and "<Class>.h" for each class.
struct CMCppGenerator {
    /// Expands the two templates of `templateDir` ("cpp_types.tpl" anchored at `model`, "cpp_class.tpl"
    /// anchored at each class) into `outDir`, which must exist. Answers false with `error` set ("FILE:
    /// LINE:COLUMN: message" for a template, "FILE: cannot ..." for a file, or two classes of one name);
    /// the headers written until then stay. `written` lists the files written, in order.
    static bool Generate(MCObject* model, const std::string& templateDir, const std::string& outDir,
                         std::vector<std::string>& written, std::string& error);
};

#endif
