#ifndef CLASSMODEL_H
#define CLASSMODEL_H

// The metamodel of a small class-diagram host: models of packages (which nest), classes with attributes
// and generalizations, associations between classes, and the data types and enumerations that type the
// attributes, with the rules such a host keeps, copy and paste included. The sample program, the
// inspection tool and the fuzz targets share it.

#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "ModelCore/ModelCoreModern.h"

class MCNameSpace;

/// The type codes of the class-diagram host; they stand in its models, so they never change.
struct CMCodes {
    enum : short {
        tModel = MCCodes::tPersistenceRoot,  ///< the persistence root
        tPackage = 1510,
        tClass = 1511,
        tAttribute = 1512,
        tAssociation = 1513,
        tDataType = 1514,     ///< a value type of a package's attributes
        tEnum = 1515,         ///< an enumeration: a DataType that owns its literals
        tEnumLiteral = 1516,  ///< one literal of an enumeration
    };
    enum : short {
        pName = MCCodes::pName,  ///< the core's Name, which name spaces read
        pVisibility = 1520,      ///< Integer: 0 public, 1 protected, 2 private
        pTypeName = 1521,        ///< String: an attribute's type
        pEndA = 1522,            ///< Reference: an association's first end class
        pEndB = 1523,            ///< Reference: its second end class
        pSuperclasses = 1524,    ///< ReferenceList: the classes a class specializes
        pRevision = 1525,        ///< Integer: how often a class's name was set
        pClassNames = 1526,      ///< Reference: the name space of a package's classes and subpackages
        pPackageNames = 1527,    ///< Reference: the name space of a model's packages
        pCppType = 1528,         ///< String: how C++ spells a data type
        pOpaque = 1529,          ///< Integer: 1 when pCppType names a type that no standard header declares
        pAttributeType = 1530,   ///< Reference: an attribute's data type
        pUpperBound = 1531,      ///< Integer: how many values an attribute or association end holds, -1 many
        pContainment = 1532,     ///< Integer: 1 when an association's first end owns what its second holds
        pAbstract = 1533,        ///< Integer: 1 for a class without instances of its own
        pInterface = 1534,       ///< Integer: 1 for a class that only declares what others implement
        pLiteralValue = 1535,    ///< Integer: the value of an enumeration literal
    };
    /// The pUpperBound of an attribute or end that holds any number of values.
    enum : long { upperUnbounded = -1 };
    /// The clip value of a usage with none of MCFactoryRegistry's clip bits: a value, or a reference whose
    /// target is neither brought into a copy nor needed there; one outside the copy is dropped on paste.
    enum : short { clipNone = 0 };
};

// The object classes: each is a level of the host's class chain; the factory RegisterClass makes for it
// is its friend, and the rules of each type are registered with the types (ClassModel::Register).

/// The root of a class diagram and the unit it is saved as.
class CMModel : public mc::HostClass<CMCodes::tModel> {
    friend mc::FactoryOf<CMModel>;
    using HostClass::HostClass;
};

/// A package: owns classes, associations, subpackages and the name space that keeps their names unique;
/// its own name is unique under its owner.
class CMPackage : public mc::HostClass<CMCodes::tPackage> {
    friend mc::FactoryOf<CMPackage>;
    using HostClass::HostClass;
};

/// A class: owns its attributes; its name is unique in its package and counted in pRevision.
class CMClass : public mc::HostClass<CMCodes::tClass> {
    friend mc::FactoryOf<CMClass>;
    using HostClass::HostClass;
};

/// An attribute of a class; its name may not be empty.
class CMAttribute : public mc::HostClass<CMCodes::tAttribute> {
    friend mc::FactoryOf<CMAttribute>;
    using HostClass::HostClass;
};

/// An association between two classes of a package; an end goes null when its class is expunged.
class CMAssociation : public mc::HostClass<CMCodes::tAssociation> {
    friend mc::FactoryOf<CMAssociation>;
    using HostClass::HostClass;
};

/// A data type of a package: its name, its C++ spelling and whether that spelling needs a declaration.
class CMDataType : public mc::HostClass<CMCodes::tDataType> {
    friend mc::FactoryOf<CMDataType>;
    using HostClass::HostClass;
};

/// An enumeration: a data type that owns its literals.
class CMEnum : public mc::HostClass<CMCodes::tEnum, CMDataType> {
    friend mc::FactoryOf<CMEnum>;
    using HostClass::HostClass;
};

/// One literal of an enumeration, with its value.
class CMEnumLiteral : public mc::HostClass<CMCodes::tEnumLiteral> {
    friend mc::FactoryOf<CMEnumLiteral>;
    using HostClass::HostClass;
};

/// The library's life in one scope for a class-diagram program: installs the environment, sets the
/// product identity, initializes the core and registers the class model; the destructor shuts all down.
/// One per process at a time; every tree must be expunged before it ends.
class CMSession : public MCEnvironment {
public:
    CMSession();
    ~CMSession();
    CMSession(const CMSession&) = delete;
    CMSession& operator=(const CMSession&) = delete;
};

/// Records every object made while it lives, so that a failed or partial restore can be taken down
/// without touching objects that are already gone.
using CMCreationLog = mc::CreationLog;

/// The number of objects of each type in the tree under `root`, `root` included.
using CMCensus = std::map<short, long>;

/// Building, editing, saving, restoring and comparing class diagrams.
class ClassModel {
public:
    /// Registers the types, properties, owners and rules once per initialized core.
    static void Register();

    /// A new, empty model named `name`, with the name space of its packages; the caller expunges it.
    static MCObject* NewModel(const char* name);
    /// A new package under a model or a package, with its own name space, renamed "<name>_<n>" when the
    /// name is taken there.
    static MCObject* AddPackage(MCObject* owner, const char* name);
    /// A new class in `package`, renamed "<name>_<n>" when the name is taken there.
    static MCObject* AddClass(MCObject* package, const char* name);
    /// Renames a class, keeping its package's names unique; the final name may carry a suffix.
    static void RenameClass(MCObject* cls, const char* name);
    /// A new attribute of `cls`; null, and nothing made, when the name is refused (empty).
    static MCObject* AddAttribute(MCObject* cls, const char* name, const char* typeName, long visibility);
    /// A new association in `package` between two of its classes.
    static MCObject* AddAssociation(MCObject* package, MCObject* endA, MCObject* endB, const char* name);
    /// Makes `cls` specialize `superclass`; false when refused (a class may not specialize itself).
    static ZVTBoolean AddSuperclass(MCObject* cls, MCObject* superclass);
    /// A new data type in `package` spelled `cppType` in C++; with a null `cppType` it is opaque, spelled
    /// by its final name, which a header must declare. Renamed "<name>_<n>" when the name is taken by a
    /// class, subpackage or type of the package.
    static MCObject* AddDataType(MCObject* package, const char* name, const char* cppType);
    /// A new enumeration in `package`, spelled by its name; named as AddDataType names.
    static MCObject* AddEnum(MCObject* package, const char* name);
    /// A new literal of `enumeration` with `value`.
    static MCObject* AddEnumLiteral(MCObject* enumeration, const char* name, long value);
    /// A new attribute of `cls` holding up to `upperBound` values (upperUnbounded for any number) of
    /// `dataType`, whose C++ spelling becomes its TypeName; null, and nothing made, when the name is
    /// refused.
    static MCObject* AddTypedAttribute(MCObject* cls, const char* name, MCObject* dataType, long upperBound);
    /// Sets the Integer `type` of `object` through the rules; false when one refuses.
    static ZVTBoolean SetInteger(MCObject* object, short type, long value);

    /// The name space of a package's classes and subpackages, null for anything else.
    static MCNameSpace* ClassNames(MCObject* package);
    /// The name space that keeps the names of what `owner` holds unique: a model's package names or a
    /// package's ClassNames; null for anything else.
    static MCNameSpace* MemberNames(MCObject* owner);
    /// The Name of `object`, "" when it has none.
    static std::string NameOf(const MCObject* object);
    /// The String `type` of `object`, "" when it has none.
    static std::string StringOf(const MCObject* object, short type);
    /// The target of the Reference `type` of `object`, null when it has none.
    static MCObject* TargetOf(const MCObject* object, short type);
    /// The Integer `type` of `object`, `absent` when it has none.
    static long IntegerOf(const MCObject* object, short type, long absent = 0);
    /// Counts the objects of the tree by type.
    static CMCensus Census(MCObject* root);
    /// The number of live objects of every registered object type, for leak checks.
    static long LiveObjects();

    /// Writes `model` with its head to the file at `path` (mc::Save); MCPersController's result, or
    /// resultOk with a false `written` when the file cannot be opened. `written` is true only when the
    /// whole model reached the file.
    static MCPersController::result Save(MCObject* model, const char* path, bool& written);
    /// Compares a tree with its restored copy: each object has a counterpart through `space` (the restore
    /// stream's id space, keyed by the saved ids) with the same type, owner, number of ownees and
    /// property values, references compared by their targets' counterparts. Empty when equal, otherwise
    /// what differs first.
    static std::string CompareRestored(MCObject* original, MCObject* restored, MCIdSpace& space);
};

#endif
