#include "examples/classmodel/ClassModel.h"

#include <fstream>

#include "ModelCore/ModelCoreModern.h"
#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCNameSpace.h"

namespace {

using C = CMCodes;

// An attribute without a name could not be told apart in a diagram.
class NamedAttributeRule : public MCPropertySemantic {
public:
    result Fire(mode, MCObject*, MCProperty*, MCPropertySemanticContext* context) override {
        if (!context || !context->GetActiveAccessor())
            return resultContinue;
        auto* accessor =
            dynamic_cast<MCSPropertyRawAccessorT<ZVTString>*>(context->GetActiveAccessor()->m_pxAccessor);
        if (!accessor)
            return resultContinue;
        return accessor->GetValue().IsNull() ? resultRefused : resultContinue;
    }
    unsigned long GetInterests() const override { return PreEdit; }
};

// Every name a class is given counts as a revision; raw, so that the count itself tells nobody.
class ClassRevisionRule : public MCPropertySemantic {
public:
    result Fire(mode nMode, MCObject* object, MCProperty*, MCPropertySemanticContext*) override {
        if (nMode != PostEdit || !object)
            return resultContinue;
        MCSPropertyRawAccessorT<long> revision(ClassModel::IntegerOf(object, C::pRevision) + 1);
        object->SetProperty(C::pRevision, revision, MCPropertyAccessor::accessAdd);
        return resultContinue;
    }
    unsigned long GetInterests() const override { return PostEdit; }
};

// A generalization cycle of length one is never meant.
class NoSelfGeneralizationRule : public MCPropertySemantic {
public:
    result Fire(mode, MCObject* object, MCProperty*, MCPropertySemanticContext* context) override {
        if (!context || !context->GetActiveAccessor())
            return resultContinue;
        const MCActiveAccessor* active = context->GetActiveAccessor();
        auto* accessor = dynamic_cast<MCVPropertyRawAccessorT<MCObject*>*>(active->m_pxAccessor);
        if (!accessor || (active->m_lFlags & MCPropertyAccessor::accessRemove))
            return resultContinue;
        return accessor->GetList()->Contains(object) ? resultRefused : resultContinue;
    }
    unsigned long GetInterests() const override { return PreEdit; }
};

// Enters `object` in the names of its owner, as a new one is: a taken name gets a number.
void EnterName(MCObject* object) {
    if (MCNameSpace* names = ClassModel::MemberNames(object->GetOwner(0, MCItem::rttiExact)))
        names->Insert(object, '_', 0, true);
}

// Data types share the scope of their package's classes and subpackages, as they do in a C++ namespace;
// a package's name space admits them when its first one comes, so that diagrams without types keep the
// name spaces they always had.
void EnterTypeName(MCObject* type) {
    MCNameSpace* names = ClassModel::ClassNames(type->GetOwner(0, MCItem::rttiExact));
    if (!names)
        return;
    if (!names->IsValidFor(type->GetType()))
        names->AddValidType(type->GetType());
    names->Insert(type, '_', 0, true);
}

// A pasted object at level 0 or below was placed under a target, among names it has not met; one
// deeper came with its owner, whose name space came too and holds its name.
bool PlacedByPaste(MCObjectSem::mode nMode, MCObjectSemContext* context) {
    auto* paste = dynamic_cast<MCPasteObjectContext*>(context);
    return nMode == MCObjectSem::PostPaste && paste && paste->GetLevel() < 1;
}

// A class pasted on its own keeps the names of its new package unique.
class PastedClassRule : public MCObjectSem {
public:
    result Fire(mode nMode, MCObject* object, MCObjectSemContext* context) override {
        if (object && PlacedByPaste(nMode, context))
            EnterName(object);
        return resultContinue;
    }
    unsigned long GetInterests() const override { return PostPaste; }
};

// A data type or enumeration pasted on its own takes a free name in its new package, as a class does; a
// type that C++ spells by its name (an enumeration, an opaque type) is then spelled by the new one.
class PastedTypeRule : public MCObjectSem {
public:
    result Fire(mode nMode, MCObject* object, MCObjectSemContext* context) override {
        if (!object || !PlacedByPaste(nMode, context))
            return resultContinue;
        const std::string before = ClassModel::NameOf(object);
        EnterTypeName(object);
        const std::string after = ClassModel::NameOf(object);
        if (after != before && ClassModel::StringOf(object, C::pCppType) == before) {
            MCSPropertyAccessorT<ZVTString> spelling{ZVTString(after.c_str())};
            object->SetProperty(C::pCppType, spelling, MCPropertyAccessor::accessAdd);
        }
        return resultContinue;
    }
    unsigned long GetInterests() const override { return PostPaste; }
};

// A pasted package brings its name space along, but a paste writes the name infos raw and fires no
// rule of theirs, so the dictionary that answers "is this name taken" starts empty: it is filled here
// from the pasted infos, as a restore fills it. They already name every class and subpackage of the
// copy; dropping them and naming all afresh would make and take down as many objects again.
class PastedPackageRule : public MCObjectSem {
public:
    result Fire(mode nMode, MCObject* object, MCObjectSemContext* context) override {
        if (nMode != PostPaste || !object)
            return resultContinue;
        if (MCNameSpace* names = ClassModel::ClassNames(object)) {
            for (MCObject* ownee = names->GetFirstOwnee(); ownee; ownee = ownee->GetNextSibling()) {
                auto* info = dynamic_cast<MCStringInfo*>(ownee);
                MCObject* named = info ? info->GetObjectA() : nullptr;
                MCSPropertyRawAccessorT<ZVTString> name;
                if (named && named->GetProperty(C::pName, name)) {
                    ZVTString key = name.GetValue();
                    names->InsertIntoDictionary(key, info);
                }
            }
        }
        if (PlacedByPaste(nMode, context))
            EnterName(object);
        return resultContinue;
    }
    unsigned long GetInterests() const override { return PostPaste; }
};

NamedAttributeRule c_xNamedAttribute;
ClassRevisionRule c_xClassRevision;
NoSelfGeneralizationRule c_xNoSelfGeneralization;
PastedClassRule c_xPastedClass;
PastedTypeRule c_xPastedType;
PastedPackageRule c_xPastedPackage;

MCObject* Create(short type, MCObject* owner) {
    return static_cast<MCObject*>(MCFactoryRegistry::CreateItem(type, owner, nullptr, nullptr));
}

ZVTBoolean SetName(MCObject* object, const char* name) {
    MCSPropertyAccessorT<ZVTString> accessor{ZVTString(name)};
    return object->SetProperty(C::pName, accessor, MCPropertyAccessor::accessAdd);
}

void SetReference(MCObject* object, short type, MCObject* target) {
    MCSRefAccessor accessor(target);
    object->SetProperty(type, accessor, MCPropertyAccessor::accessAdd);
}

// Compares property values, the id excepted (a restore gives fresh ids), and references by the
// counterparts of their targets.
class RestoredPropertyEqual : public MCPropertyEqualStrategy {
public:
    explicit RestoredPropertyEqual(MCIdSpace& space) : m_rSpace(space) {}

    ZVTBoolean AreEqual(const MCObject*, const MCProperty* mine, const MCObject*,
                        const MCProperty* theirs) override {
        if (mine->GetType() == MCCodes::pId)
            return true;
        if (auto* single = dynamic_cast<const MCSRef*>(mine)) {
            auto* other = dynamic_cast<const MCSRef*>(theirs);
            return other && Counterpart(single->GetValue()) == other->GetValue();
        }
        if (auto* list = dynamic_cast<const MCVRef*>(mine)) {
            auto* other = dynamic_cast<const MCVRef*>(theirs);
            if (!other)
                return false;
            ZVTSList<MCObject*> a = list->GetValue();
            ZVTSList<MCObject*> b = other->GetValue();
            if (a.Entries() != b.Entries())
                return false;
            for (size_t i = 0; i < a.Entries(); ++i) {
                if (Counterpart(a.At(i)) != b.At(i))
                    return false;
            }
            return true;
        }
        return mine->IsEqualTo(theirs, false);
    }

    MCObject* Counterpart(const MCObject* object) const {
        return object ? m_rSpace.ResolveId(object->GetId()) : nullptr;
    }

private:
    MCIdSpace& m_rSpace;
};

}  // namespace

// --- object classes ---------------------------------------------------------------------------------

CMModel::CMModel(short type, MCFactorySignature& signature, MCFactoryContext* context)
    : MCObject(type, signature, context) {
    RegisterLevel(C::tModel, context);
}
CMModel::CMModel(MCObject* owner, MCFactoryContext* context) : MCObject(C::tModel, owner, context) {
    RegisterLevel(C::tModel, context);
}
ZVTBoolean CMModel::IsType_(short type) const {
    return type == C::tModel || MCObject::IsType_(type);
}

CMPackage::CMPackage(short type, MCFactorySignature& signature, MCFactoryContext* context)
    : MCObject(type, signature, context) {
    RegisterRules(context);
}
CMPackage::CMPackage(MCObject* owner, MCFactoryContext* context) : MCObject(C::tPackage, owner, context) {
    RegisterRules(context);
}
void CMPackage::RegisterRules(MCFactoryContext* context) {
    MCObjectSemReg::Register(C::tPackage, context, &c_xPastedPackage, false);
    RegisterLevel(C::tPackage, context);
}
ZVTBoolean CMPackage::IsType_(short type) const {
    return type == C::tPackage || MCObject::IsType_(type);
}

CMClass::CMClass(short type, MCFactorySignature& signature, MCFactoryContext* context)
    : MCObject(type, signature, context) {
    RegisterRules(context);
}
CMClass::CMClass(MCObject* owner, MCFactoryContext* context) : MCObject(C::tClass, owner, context) {
    RegisterRules(context);
}
// Rules go in before RegisterLevel, while the context's ancestor slot still names the supertype.
void CMClass::RegisterRules(MCFactoryContext* context) {
    MCPropertySemanticRegistry::Register(C::tClass, context, C::pName, &c_xClassRevision, false, false);
    MCPropertySemanticRegistry::Register(C::tClass, context, C::pSuperclasses, &c_xNoSelfGeneralization,
                                         false, false);
    MCObjectSemReg::Register(C::tClass, context, &c_xPastedClass, false);
    RegisterLevel(C::tClass, context);
}
ZVTBoolean CMClass::IsType_(short type) const {
    return type == C::tClass || MCObject::IsType_(type);
}

CMAttribute::CMAttribute(short type, MCFactorySignature& signature, MCFactoryContext* context)
    : MCObject(type, signature, context) {
    RegisterRules(context);
}
CMAttribute::CMAttribute(MCObject* owner, MCFactoryContext* context)
    : MCObject(C::tAttribute, owner, context) {
    RegisterRules(context);
}
void CMAttribute::RegisterRules(MCFactoryContext* context) {
    MCPropertySemanticRegistry::Register(C::tAttribute, context, C::pName, &c_xNamedAttribute, false, false);
    RegisterLevel(C::tAttribute, context);
}
ZVTBoolean CMAttribute::IsType_(short type) const {
    return type == C::tAttribute || MCObject::IsType_(type);
}

CMAssociation::CMAssociation(short type, MCFactorySignature& signature, MCFactoryContext* context)
    : MCObject(type, signature, context) {
    RegisterLevel(C::tAssociation, context);
}
CMAssociation::CMAssociation(MCObject* owner, MCFactoryContext* context)
    : MCObject(C::tAssociation, owner, context) {
    RegisterLevel(C::tAssociation, context);
}
ZVTBoolean CMAssociation::IsType_(short type) const {
    return type == C::tAssociation || MCObject::IsType_(type);
}

CMDataType::CMDataType(short type, MCFactorySignature& signature, MCFactoryContext* context)
    : MCObject(type, signature, context) {
    RegisterRules(context);
}
CMDataType::CMDataType(MCObject* owner, MCFactoryContext* context, short type)
    : MCObject(type, owner, context) {
    RegisterRules(context);
}
void CMDataType::RegisterRules(MCFactoryContext* context) {
    MCObjectSemReg::Register(C::tDataType, context, &c_xPastedType, false);
    RegisterLevel(C::tDataType, context);
}
ZVTBoolean CMDataType::IsType_(short type) const {
    return type == C::tDataType || MCObject::IsType_(type);
}

CMEnum::CMEnum(short type, MCFactorySignature& signature, MCFactoryContext* context)
    : CMDataType(type, signature, context) {
    RegisterLevel(C::tEnum, context);
}
CMEnum::CMEnum(MCObject* owner, MCFactoryContext* context) : CMDataType(owner, context, C::tEnum) {
    RegisterLevel(C::tEnum, context);
}
ZVTBoolean CMEnum::IsType_(short type) const {
    return type == C::tEnum || CMDataType::IsType_(type);
}

CMEnumLiteral::CMEnumLiteral(short type, MCFactorySignature& signature, MCFactoryContext* context)
    : MCObject(type, signature, context) {
    RegisterLevel(C::tEnumLiteral, context);
}
CMEnumLiteral::CMEnumLiteral(MCObject* owner, MCFactoryContext* context)
    : MCObject(C::tEnumLiteral, owner, context) {
    RegisterLevel(C::tEnumLiteral, context);
}
ZVTBoolean CMEnumLiteral::IsType_(short type) const {
    return type == C::tEnumLiteral || MCObject::IsType_(type);
}

// --- session and creation log -----------------------------------------------------------------------

CMSession::CMSession() {
    SetSingleton(this);
    HUBProductIdent::SetProductIdent("Sample Host", "ClassDiagram", "1.0", "1, 0");
    MdlCore::Initialize();
    ClassModel::Register();
}

CMSession::~CMSession() {
    NotifyOfShutdown();
}

CMCreationLog::CMCreationLog() {
    MCFactoryRegistry::HookCreateItem(*this, true);
}

CMCreationLog::~CMCreationLog() {
    MCFactoryRegistry::HookCreateItem(*this, false);
}

void CMCreationLog::ItemCreated(MCObject* object) {
    m_xCreated.emplace_back(object, object->GetId());
}

std::size_t CMCreationLog::ExpungeStrays(MCObject* keep) {
    return mc::ExpungeStrays(m_xCreated, keep);
}

// --- metamodel --------------------------------------------------------------------------------------

void ClassModel::Register() {
    using R = MCFactoryRegistry;
    if (R::IsRegistered(C::tModel, nullptr))
        return;
    R::RegisterAliasProperty(C::pVisibility, "Visibility", MCCodes::pInteger, true, false, false, false);
    R::RegisterAliasProperty(C::pTypeName, "TypeName", MCCodes::pString, true, false, false, false);
    R::RegisterAliasProperty(C::pEndA, "EndA", MCCodes::pReference, true, false, false, false);
    R::RegisterAliasProperty(C::pEndB, "EndB", MCCodes::pReference, true, false, false, false);
    R::RegisterAliasProperty(C::pSuperclasses, "Superclasses", MCCodes::pReferenceList, true, false, false,
                             false);
    R::RegisterAliasProperty(C::pRevision, "Revision", MCCodes::pInteger, true, false, false, false);
    R::RegisterAliasProperty(C::pClassNames, "ClassNames", MCCodes::pReference, false, false, false, false);
    R::RegisterAliasProperty(C::pPackageNames, "PackageNames", MCCodes::pReference, false, false, false,
                             false);

    // The registry owns the factories.
    new MCObjectFactoryT<CMModel, MCObject>(C::tModel, "Model", 1, 0, 1, 0, true, false);
    new MCObjectFactoryT<CMPackage, MCObject>(C::tPackage, "Package", 1, C::tModel, 16, 0, true, false);
    new MCObjectFactoryT<CMClass, MCObject>(C::tClass, "Class", 1, C::tPackage, 1024, 0, true, false);
    new MCObjectFactoryT<CMAttribute, MCObject>(C::tAttribute, "Attribute", 1, C::tClass, 4096, 0, true,
                                                false);
    new MCObjectFactoryT<CMAssociation, MCObject>(C::tAssociation, "Association", 1, C::tPackage, 512, 0,
                                                  true, false);
    // Packages nest, so that a copied package can be pasted into another.
    R::AddOwnerType(C::tPackage, C::tPackage);

    // A package's name space is its ownee and travels with it anyway. A class keeps its superclasses
    // only within the copy: copying a class should not drag in its ancestry, and one outside is dropped
    // on paste. An association means nothing without both its classes.
    const short none = C::clipNone;
    const short depend = R::clipDepend;
    const short model[] = {C::pName, none, C::pPackageNames, none};
    const short package[] = {C::pName, none, C::pClassNames, none};
    const short cls[] = {C::pName, none, C::pVisibility, none, C::pSuperclasses, none, C::pRevision, none};
    const short attribute[] = {C::pName, none, C::pTypeName, none, C::pVisibility, none};
    const short association[] = {C::pName, none, C::pEndA, depend, C::pEndB, depend};
    R::AddPropertyUsages(C::tModel, model, 2);
    R::AddPropertyUsages(C::tPackage, package, 2);
    R::AddPropertyUsages(C::tClass, cls, 4);
    R::AddPropertyUsages(C::tAttribute, attribute, 3);
    R::AddPropertyUsages(C::tAssociation, association, 3);

    // What an imported class model adds: data types and enumerations beside the classes, and what a
    // C++ header of a class needs to know of its members. An attribute's data type travels like a
    // superclass: only within the copy.
    R::RegisterAliasProperty(C::pCppType, "CppType", MCCodes::pString, true, false, false, false);
    R::RegisterAliasProperty(C::pOpaque, "Opaque", MCCodes::pInteger, true, false, false, false);
    R::RegisterAliasProperty(C::pAttributeType, "AttributeType", MCCodes::pReference, true, false, false,
                             false);
    R::RegisterAliasProperty(C::pUpperBound, "UpperBound", MCCodes::pInteger, true, false, false, false);
    R::RegisterAliasProperty(C::pContainment, "Containment", MCCodes::pInteger, true, false, false, false);
    R::RegisterAliasProperty(C::pAbstract, "Abstract", MCCodes::pInteger, true, false, false, false);
    R::RegisterAliasProperty(C::pInterface, "Interface", MCCodes::pInteger, true, false, false, false);
    R::RegisterAliasProperty(C::pLiteralValue, "LiteralValue", MCCodes::pInteger, true, false, false, false);
    new MCObjectFactoryT<CMDataType, MCObject>(C::tDataType, "DataType", 1, C::tPackage, 256, 0, true, false);
    new MCObjectFactoryT<CMEnum, MCObject>(C::tEnum, "Enum", C::tDataType, C::tPackage, 64, 0, true, false);
    new MCObjectFactoryT<CMEnumLiteral, MCObject>(C::tEnumLiteral, "EnumLiteral", 1, C::tEnum, 256, 0, true,
                                                  false);
    const short dataType[] = {C::pName, none, C::pCppType, none, C::pOpaque, none};
    const short literal[] = {C::pName, none, C::pLiteralValue, none};
    const short classKind[] = {C::pAbstract, none, C::pInterface, none};
    const short typed[] = {C::pAttributeType, none, C::pUpperBound, none};
    const short end[] = {C::pUpperBound, none, C::pContainment, none};
    R::AddPropertyUsages(C::tDataType, dataType, 3);
    R::AddPropertyUsages(C::tEnum, dataType, 3);
    R::AddPropertyUsages(C::tEnumLiteral, literal, 2);
    R::AddPropertyUsages(C::tClass, classKind, 2);
    R::AddPropertyUsages(C::tAttribute, typed, 2);
    R::AddPropertyUsages(C::tAssociation, end, 2);
}

// --- building and editing ---------------------------------------------------------------------------

MCObject* ClassModel::NewModel(const char* name) {
    MCObject* model = Create(C::tModel, nullptr);
    if (!model)
        return nullptr;
    SetName(model, name);
    if (auto* names = static_cast<MCNameSpace*>(Create(MCNameSpace::c_sType, model))) {
        names->AddValidType(C::tPackage);
        SetReference(model, C::pPackageNames, names);
    }
    return model;
}

MCObject* ClassModel::AddPackage(MCObject* owner, const char* name) {
    MCObject* package = Create(C::tPackage, owner);
    if (!package)
        return nullptr;
    SetName(package, name);
    EnterName(package);
    // A package's classes and subpackages share one scope: a subpackage may not be named like a class.
    if (auto* names = static_cast<MCNameSpace*>(Create(MCNameSpace::c_sType, package))) {
        names->AddValidType(C::tClass);
        names->AddValidType(C::tPackage);
        SetReference(package, C::pClassNames, names);
    }
    return package;
}

MCObject* ClassModel::AddClass(MCObject* package, const char* name) {
    MCObject* cls = Create(C::tClass, package);
    if (!cls)
        return nullptr;
    SetName(cls, name);
    EnterName(cls);
    return cls;
}

void ClassModel::RenameClass(MCObject* cls, const char* name) {
    // A name space keys on the name an object entered with: out under the old, in under the new.
    MCNameSpace* names = ClassNames(cls->GetOwner(0, MCItem::rttiExact));
    if (names)
        names->Delete(cls);
    SetName(cls, name);
    if (names)
        names->Insert(cls, '_', 0, true);
}

MCObject* ClassModel::AddAttribute(MCObject* cls, const char* name, const char* typeName, long visibility) {
    MCObject* attribute = Create(C::tAttribute, cls);
    if (!attribute)
        return nullptr;
    if (!SetName(attribute, name)) {
        attribute->Expunge(true);
        return nullptr;
    }
    MCSPropertyAccessorT<ZVTString> type{ZVTString(typeName)};
    attribute->SetProperty(C::pTypeName, type, MCPropertyAccessor::accessAdd);
    MCSPropertyAccessorT<long> shown(visibility);
    attribute->SetProperty(C::pVisibility, shown, MCPropertyAccessor::accessAdd);
    return attribute;
}

MCObject* ClassModel::AddAssociation(MCObject* package, MCObject* endA, MCObject* endB, const char* name) {
    MCObject* association = Create(C::tAssociation, package);
    if (!association)
        return nullptr;
    SetName(association, name);
    SetReference(association, C::pEndA, endA);
    SetReference(association, C::pEndB, endB);
    return association;
}

ZVTBoolean ClassModel::AddSuperclass(MCObject* cls, MCObject* superclass) {
    MCVRefAccessor accessor(superclass);
    return cls->SetProperty(C::pSuperclasses, accessor, MCPropertyAccessor::accessAdd);
}

MCObject* ClassModel::AddDataType(MCObject* package, const char* name, const char* cppType) {
    MCObject* type = Create(C::tDataType, package);
    if (!type)
        return nullptr;
    SetName(type, name);
    EnterTypeName(type);
    // An opaque type is spelled as it is finally called, once its name is unique.
    MCSPropertyAccessorT<ZVTString> spelling{ZVTString(cppType ? cppType : NameOf(type).c_str())};
    type->SetProperty(C::pCppType, spelling, MCPropertyAccessor::accessAdd);
    SetInteger(type, C::pOpaque, cppType ? 0 : 1);
    return type;
}

MCObject* ClassModel::AddEnum(MCObject* package, const char* name) {
    MCObject* enumeration = Create(C::tEnum, package);
    if (!enumeration)
        return nullptr;
    SetName(enumeration, name);
    EnterTypeName(enumeration);
    MCSPropertyAccessorT<ZVTString> spelling{ZVTString(NameOf(enumeration).c_str())};
    enumeration->SetProperty(C::pCppType, spelling, MCPropertyAccessor::accessAdd);
    SetInteger(enumeration, C::pOpaque, 0);
    return enumeration;
}

MCObject* ClassModel::AddEnumLiteral(MCObject* enumeration, const char* name, long value) {
    MCObject* literal = Create(C::tEnumLiteral, enumeration);
    if (!literal)
        return nullptr;
    SetName(literal, name);
    SetInteger(literal, C::pLiteralValue, value);
    return literal;
}

MCObject* ClassModel::AddTypedAttribute(MCObject* cls, const char* name, MCObject* dataType,
                                        long upperBound) {
    MCObject* attribute = AddAttribute(cls, name, StringOf(dataType, C::pCppType).c_str(), 0);
    if (!attribute)
        return nullptr;
    SetReference(attribute, C::pAttributeType, dataType);
    SetInteger(attribute, C::pUpperBound, upperBound);
    return attribute;
}

ZVTBoolean ClassModel::SetInteger(MCObject* object, short type, long value) {
    MCSPropertyAccessorT<long> accessor(value);
    return object->SetProperty(type, accessor, MCPropertyAccessor::accessAdd);
}

// --- reading ----------------------------------------------------------------------------------------

MCNameSpace* ClassModel::ClassNames(MCObject* package) {
    if (!package || !package->IsType(C::tPackage, MCItem::rttiExact))
        return nullptr;
    MCSRefRawAccessor names;
    if (!package->GetProperty(C::pClassNames, names))
        return nullptr;
    return dynamic_cast<MCNameSpace*>(names.GetValue());
}

MCNameSpace* ClassModel::MemberNames(MCObject* owner) {
    if (!owner || !owner->IsType(C::tModel, MCItem::rttiExact))
        return ClassNames(owner);
    MCSRefRawAccessor names;
    if (!owner->GetProperty(C::pPackageNames, names))
        return nullptr;
    return dynamic_cast<MCNameSpace*>(names.GetValue());
}

std::string ClassModel::NameOf(const MCObject* object) {
    MCSPropertyRawAccessorT<ZVTString> name;
    return object && object->GetProperty(C::pName, name) ? name.GetValue().str() : std::string();
}

std::string ClassModel::StringOf(const MCObject* object, short type) {
    MCSPropertyRawAccessorT<ZVTString> value;
    return object && object->GetProperty(type, value) ? value.GetValue().str() : std::string();
}

MCObject* ClassModel::TargetOf(const MCObject* object, short type) {
    MCSRefRawAccessor target;
    return object && object->GetProperty(type, target) ? target.GetValue() : nullptr;
}

long ClassModel::IntegerOf(const MCObject* object, short type, long absent) {
    MCSPropertyRawAccessorT<long> value;
    return object && object->GetProperty(type, value) ? value.GetValue() : absent;
}

CMCensus ClassModel::Census(MCObject* root) {
    CMCensus census;
    MCDepthFirstWalker walker(root, nullptr);
    while (walker.Traverse())
        ++census[walker.GetValue()->GetType()];
    return census;
}

long ClassModel::LiveObjects() {
    ZVTOrderedVectorT<short> types;
    MCFactoryRegistry::GetObjectTypes(types, ~MCFactoryRegistry::flagProperty);
    long live = 0;
    for (size_t i = 0; i < types.Length(); ++i) {
        ZVTHTableT<MCObject*>* table = nullptr;
        if (MCFactoryRegistry::GetInstances(types[i], table, nullptr) && table)
            live += static_cast<long>(table->Entries());
    }
    return live;
}

// --- persistence ------------------------------------------------------------------------------------

MCPersController::result ClassModel::Save(MCObject* model, const char* path, bool& written) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    written = false;
    if (!file)
        return MCPersController::resultOk;
    MCStream stream(*file.rdbuf(), ZVTStream::binary);
    MCPersController controller;
    MCPersHeader header;
    MCPersController::result result = controller.SaveTo(stream, model, header);
    stream.flush();
    file.flush();
    written = result == MCPersController::resultOk && stream.good() && file.good();
    return result;
}

std::string ClassModel::CompareRestored(MCObject* original, MCObject* restored, MCIdSpace& space) {
    RestoredPropertyEqual equal(space);
    std::string difference;
    if (equal.Counterpart(original) != restored)
        return "the restored root is not the counterpart of the original root";
    MCDepthFirstWalker walker(original, nullptr);
    while (difference.empty() && walker.Traverse()) {
        MCObject* mine = walker.GetValue();
        const std::string where =
            "object " + std::to_string(mine->GetId()) + " (type " + std::to_string(mine->GetType()) + "): ";
        MCObject* theirs = equal.Counterpart(mine);
        if (!theirs) {
            difference = where + "no counterpart";
        } else if (theirs->GetType() != mine->GetType()) {
            difference = where + "type differs";
        } else if (mine != original && equal.Counterpart(mine->GetOwner(0, MCItem::rttiExact)) !=
                                           theirs->GetOwner(0, MCItem::rttiExact)) {
            difference = where + "owner differs";
        } else if (theirs->GetOwneeCount() != mine->GetOwneeCount()) {
            difference = where + "ownee count differs";
        } else if (!mine->IsEqualTo(theirs, nullptr, &equal)) {
            difference = where + "properties differ";
        }
    }
    return difference;
}
