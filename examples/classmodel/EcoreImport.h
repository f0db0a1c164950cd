#ifndef ECOREIMPORT_H
#define ECOREIMPORT_H

// Reads class metamodels written as Ecore XMI (.ecore files) into new class diagrams of the class model,
// through its building calls, so that its rules run as they do for a diagram drawn by hand:
//
//   EPackage, eSubpackages   -> Package (the root package under a new Model of the same name)
//   EClass                   -> Class, with Abstract and Interface; eSuperTypes -> Superclasses
//   EDataType                -> DataType, CppType from its instanceClassName (opaque when C++ has none)
//   EEnum, eLiterals         -> Enum owning an EnumLiteral per literal, with its LiteralValue
//   EAttribute               -> Attribute, AttributeType and UpperBound; TypeName is its type's CppType
//   EReference               -> Association in its class's package: EndA the class, EndB the type,
//                               with UpperBound and Containment
//
// Types are named by references within the file ("#//Name", "#//sub/Name") and by references to the
// standard data types and classes of Ecore's own namespace, which are made on first use in a package
// "ecore" of the model. A type parameter stands for Ecore's EJavaObject (an attribute's) or EObject (a
// reference's); type arguments and operations are left out.

#include <cstddef>
#include <string>

class MCObject;

/// What an import gives: a new model, or why there is none.
struct EcoreImportResult {
    /// The imported model, owned by the caller, who expunges it; null when the import failed.
    MCObject* m_pxModel = nullptr;
    /// Empty on success; otherwise "name:LINE: message", LINE counted from 1 in the input. A file that
    /// cannot be read gives "name: cannot read the file".
    std::string m_sError;
};

/// Imports the .ecore file at `path` into a new model. A failed import leaves no object alive. Needs a
/// live CMSession.
EcoreImportResult ImportEcore(const char* path);

/// Imports `size` bytes of Ecore XMI as ImportEcore does, naming them `name` in the error; the bytes need
/// not be text or end with a null.
EcoreImportResult ImportEcoreBytes(const char* name, const char* bytes, std::size_t size);

#endif
