#include "examples/classmodel/ClassModel.h"

#include <fstream>

#include "ModelCore/ZVFWMC/MCNameSpace.h"

namespace {

using C = CMCodes;
using EditRule = MCPropertySemantic;
using ObjectRule = MCObjectSem;

MCObject* OwnerOf(const MCObject* object) {
    return object->GetOwner(0, MCItem::rttiExact);
}

// Enters `object` in the names of its owner, as a new one is: a taken name gets a number.
void EnterName(MCObject* object) {
    if (MCNameSpace* names = ClassModel::MemberNames(OwnerOf(object)))
        names->Insert(object, '_', 0, true);
}

// Data types share the scope of their package's classes and subpackages, as they do in a C++ namespace;
// a package's name space admits them when its first one comes, so that diagrams without types keep the
// name spaces they always had.
void EnterTypeName(MCObject* type) {
    MCNameSpace* names = ClassModel::ClassNames(OwnerOf(type));
    if (!names)
        return;
    if (!names->IsValidFor(type->GetType()))
        names->AddValidType(type->GetType());
    names->Insert(type, '_', 0, true);
}

// A pasted object at level 0 or below was placed under a target, among names it has not met; one
// deeper came with its owner, whose name space came too and holds its name.
bool PlacedByPaste(ObjectRule::mode when, MCObjectSemContext* context) {
    auto* paste = dynamic_cast<MCPasteObjectContext*>(context);
    return when == ObjectRule::PostPaste && paste && paste->GetLevel() < 1;
}

// An attribute without a name could not be told apart in a diagram.
EditRule::result RefuseEmptyName(EditRule::mode, MCObject*, MCProperty*, MCPropertySemanticContext* context) {
    const auto name = mc::Incoming<ZVTString>(context);
    return name && name->IsNull() ? EditRule::resultRefused : EditRule::resultContinue;
}

// Every name a class is given counts as a revision; raw, so that the count itself tells nobody.
EditRule::result CountRevision(EditRule::mode, MCObject* cls, MCProperty*, MCPropertySemanticContext*) {
    if (cls) {
        MCSPropertyRawAccessorT<long> revision(ClassModel::IntegerOf(cls, C::pRevision) + 1);
        cls->SetProperty(C::pRevision, revision, MCPropertyAccessor::accessAdd);
    }
    return EditRule::resultContinue;
}

// A generalization cycle of length one is never meant.
EditRule::result RefuseSelfGeneralization(EditRule::mode, MCObject* cls, MCProperty*,
                                          MCPropertySemanticContext* context) {
    const auto [superclasses, flags] = mc::IncomingList<MCObject*>(context);
    if (!superclasses || (flags & MCPropertyAccessor::accessRemove))
        return EditRule::resultContinue;
    return superclasses->Contains(cls) ? EditRule::resultRefused : EditRule::resultContinue;
}

// A class pasted on its own keeps the names of its new package unique.
ObjectRule::result NamePastedClass(ObjectRule::mode when, MCObject* cls, MCObjectSemContext* context) {
    if (cls && PlacedByPaste(when, context))
        EnterName(cls);
    return ObjectRule::resultContinue;
}

// A data type or enumeration pasted on its own takes a free name in its new package, as a class does; a
// type that C++ spells by its name (an enumeration, an opaque type) is then spelled by the new one.
ObjectRule::result NamePastedType(ObjectRule::mode when, MCObject* type, MCObjectSemContext* context) {
    if (!type || !PlacedByPaste(when, context))
        return ObjectRule::resultContinue;
    const std::string before = ClassModel::NameOf(type);
    EnterTypeName(type);
    const std::string after = ClassModel::NameOf(type);
    if (after != before && ClassModel::StringOf(type, C::pCppType) == before)
        mc::Set(type, C::pCppType, after.c_str());
    return ObjectRule::resultContinue;
}

// A pasted package brings its name space along, but a paste writes the name infos raw and fires no
// rule of theirs, so the dictionary that answers "is this name taken" starts empty: it is filled here
// from the pasted infos, as a restore fills it. They already name every class and subpackage of the
// copy; dropping them and naming all afresh would make and take down as many objects again.
ObjectRule::result RebuildPastedNames(ObjectRule::mode when, MCObject* package, MCObjectSemContext* context) {
    if (!package)
        return ObjectRule::resultContinue;
    if (MCNameSpace* names = ClassModel::ClassNames(package)) {
        for (MCObject* ownee : mc::Ownees(names)) {
            auto* info = dynamic_cast<MCStringInfo*>(ownee);
            if (auto name = mc::Get<ZVTString>(info ? info->GetObjectA() : nullptr, C::pName))
                names->InsertIntoDictionary(*name, info);
        }
    }
    if (PlacedByPaste(when, context))
        EnterName(package);
    return ObjectRule::resultContinue;
}

// The rules live as long as the process: the core starts once per process, and a handle that outlives
// it only frees its rule.
std::vector<mc::Rule>& Rules() {
    static std::vector<mc::Rule> rules;
    return rules;
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

// --- metamodel --------------------------------------------------------------------------------------

CMSession::CMSession() {
    SetSingleton(this);
    HUBProductIdent::SetProductIdent("Sample Host", "ClassDiagram", "1.0", "1, 0");
    MdlCore::Initialize();
    ClassModel::Register();
}

CMSession::~CMSession() {
    NotifyOfShutdown();
}

void ClassModel::Register() {
    using R = MCFactoryRegistry;
    if (R::IsRegistered(C::tModel, nullptr))
        return;
    struct Alias {
        short code;
        const char* name;
        short valueType;
        bool compared;  // registered `first`: takes part in default equality
    };
    const Alias aliases[] = {
        {C::pVisibility, "Visibility", MCCodes::pInteger, true},
        {C::pTypeName, "TypeName", MCCodes::pString, true},
        {C::pEndA, "EndA", MCCodes::pReference, true},
        {C::pEndB, "EndB", MCCodes::pReference, true},
        {C::pSuperclasses, "Superclasses", MCCodes::pReferenceList, true},
        {C::pRevision, "Revision", MCCodes::pInteger, true},
        {C::pClassNames, "ClassNames", MCCodes::pReference, false},
        {C::pPackageNames, "PackageNames", MCCodes::pReference, false},
        {C::pCppType, "CppType", MCCodes::pString, true},
        {C::pOpaque, "Opaque", MCCodes::pInteger, true},
        {C::pAttributeType, "AttributeType", MCCodes::pReference, true},
        {C::pUpperBound, "UpperBound", MCCodes::pInteger, true},
        {C::pContainment, "Containment", MCCodes::pInteger, true},
        {C::pAbstract, "Abstract", MCCodes::pInteger, true},
        {C::pInterface, "Interface", MCCodes::pInteger, true},
        {C::pLiteralValue, "LiteralValue", MCCodes::pInteger, true},
    };
    for (const Alias& alias : aliases)
        R::RegisterAliasProperty(alias.code, alias.name, alias.valueType, alias.compared, false, false,
                                 false);

    using Options = mc::ClassOptions;
    mc::RegisterClass<CMModel>("Model", Options().Expecting(1).First());
    mc::RegisterClass<CMPackage>("Package", Options().OwnedBy(C::tModel).Expecting(16).First());
    mc::RegisterClass<CMClass>("Class", Options().OwnedBy(C::tPackage).Expecting(1024).First());
    mc::RegisterClass<CMAttribute>("Attribute", Options().OwnedBy(C::tClass).Expecting(4096).First());
    mc::RegisterClass<CMAssociation>("Association", Options().OwnedBy(C::tPackage).Expecting(512).First());
    mc::RegisterClass<CMDataType>("DataType", Options().OwnedBy(C::tPackage).Expecting(256).First());
    mc::RegisterClass<CMEnum>("Enum",
                              Options().Under(C::tDataType).OwnedBy(C::tPackage).Expecting(64).First());
    mc::RegisterClass<CMEnumLiteral>("EnumLiteral", Options().OwnedBy(C::tEnum).Expecting(256).First());
    // Packages nest, so that a copied package can be pasted into another.
    R::AddOwnerType(C::tPackage, C::tPackage);

    // A package's name space is its ownee and travels with it anyway. A class keeps its superclasses
    // and an attribute its data type only within the copy: copying one should not drag in its ancestry
    // or its types, and one outside is dropped on paste. An association means nothing without both its
    // classes.
    const short none = C::clipNone;
    const short depend = R::clipDepend;
    const short model[] = {C::pName, none, C::pPackageNames, none};
    const short package[] = {C::pName, none, C::pClassNames, none};
    const short cls[] = {C::pName,     none, C::pVisibility, none, C::pSuperclasses, none,
                         C::pRevision, none, C::pAbstract,   none, C::pInterface,    none};
    const short attribute[] = {C::pName,          none, C::pTypeName,   none, C::pVisibility, none,
                               C::pAttributeType, none, C::pUpperBound, none};
    const short association[] = {C::pName, none,           C::pEndA, depend,          C::pEndB,
                                 depend,   C::pUpperBound, none,     C::pContainment, none};
    const short dataType[] = {C::pName, none, C::pCppType, none, C::pOpaque, none};
    const short literal[] = {C::pName, none, C::pLiteralValue, none};
    R::AddPropertyUsages(C::tModel, model, 2);
    R::AddPropertyUsages(C::tPackage, package, 2);
    R::AddPropertyUsages(C::tClass, cls, 6);
    R::AddPropertyUsages(C::tAttribute, attribute, 5);
    R::AddPropertyUsages(C::tAssociation, association, 5);
    R::AddPropertyUsages(C::tDataType, dataType, 3);
    R::AddPropertyUsages(C::tEnum, dataType, 3);
    R::AddPropertyUsages(C::tEnumLiteral, literal, 2);

    std::vector<mc::Rule>& rules = Rules();
    rules.push_back(mc::OnEdit(C::tClass, C::pName, CountRevision, EditRule::PostEdit));
    rules.push_back(mc::OnEdit(C::tClass, C::pSuperclasses, RefuseSelfGeneralization));
    rules.push_back(mc::OnEdit(C::tAttribute, C::pName, RefuseEmptyName));
    rules.push_back(mc::OnObject(C::tClass, NamePastedClass, ObjectRule::PostPaste));
    rules.push_back(mc::OnObject(C::tDataType, NamePastedType, ObjectRule::PostPaste));
    rules.push_back(mc::OnObject(C::tPackage, RebuildPastedNames, ObjectRule::PostPaste));
}

// --- building and editing ---------------------------------------------------------------------------

MCObject* ClassModel::NewModel(const char* name) {
    CMModel* model = mc::Create<CMModel>(nullptr);
    if (!model)
        return nullptr;
    mc::Set(model, C::pName, name);
    if (auto* names = mc::Create<MCNameSpace>(model)) {
        names->AddValidType(C::tPackage);
        mc::Set(model, C::pPackageNames, names);
    }
    return model;
}

MCObject* ClassModel::AddPackage(MCObject* owner, const char* name) {
    CMPackage* package = mc::Create<CMPackage>(owner);
    if (!package)
        return nullptr;
    mc::Set(package, C::pName, name);
    EnterName(package);
    // A package's classes and subpackages share one scope: a subpackage may not be named like a class.
    if (auto* names = mc::Create<MCNameSpace>(package)) {
        names->AddValidType(C::tClass);
        names->AddValidType(C::tPackage);
        mc::Set(package, C::pClassNames, names);
    }
    return package;
}

MCObject* ClassModel::AddClass(MCObject* package, const char* name) {
    CMClass* cls = mc::Create<CMClass>(package);
    if (!cls)
        return nullptr;
    mc::Set(cls, C::pName, name);
    EnterName(cls);
    return cls;
}

void ClassModel::RenameClass(MCObject* cls, const char* name) {
    // A name space keys on the name an object entered with: out under the old, in under the new.
    MCNameSpace* names = ClassNames(OwnerOf(cls));
    if (names)
        names->Delete(cls);
    mc::Set(cls, C::pName, name);
    if (names)
        names->Insert(cls, '_', 0, true);
}

MCObject* ClassModel::AddAttribute(MCObject* cls, const char* name, const char* typeName, long visibility) {
    CMAttribute* attribute = mc::Create<CMAttribute>(cls);
    if (!attribute)
        return nullptr;
    if (!mc::Set(attribute, C::pName, name)) {
        attribute->Expunge(true);
        return nullptr;
    }
    mc::Set(attribute, C::pTypeName, typeName);
    mc::Set(attribute, C::pVisibility, visibility);
    return attribute;
}

MCObject* ClassModel::AddAssociation(MCObject* package, MCObject* endA, MCObject* endB, const char* name) {
    CMAssociation* association = mc::Create<CMAssociation>(package);
    if (!association)
        return nullptr;
    mc::Set(association, C::pName, name);
    mc::Set(association, C::pEndA, endA);
    mc::Set(association, C::pEndB, endB);
    return association;
}

ZVTBoolean ClassModel::AddSuperclass(MCObject* cls, MCObject* superclass) {
    MCVRefAccessor accessor(superclass);
    return cls->SetProperty(C::pSuperclasses, accessor, MCPropertyAccessor::accessAdd);
}

MCObject* ClassModel::AddDataType(MCObject* package, const char* name, const char* cppType) {
    CMDataType* type = mc::Create<CMDataType>(package);
    if (!type)
        return nullptr;
    mc::Set(type, C::pName, name);
    EnterTypeName(type);
    // An opaque type is spelled as it is finally called, once its name is unique.
    mc::Set(type, C::pCppType, cppType ? ZVTString(cppType) : ZVTString(NameOf(type).c_str()));
    mc::Set(type, C::pOpaque, cppType ? 0 : 1);
    return type;
}

MCObject* ClassModel::AddEnum(MCObject* package, const char* name) {
    CMEnum* enumeration = mc::Create<CMEnum>(package);
    if (!enumeration)
        return nullptr;
    mc::Set(enumeration, C::pName, name);
    EnterTypeName(enumeration);
    mc::Set(enumeration, C::pCppType, NameOf(enumeration).c_str());
    mc::Set(enumeration, C::pOpaque, 0);
    return enumeration;
}

MCObject* ClassModel::AddEnumLiteral(MCObject* enumeration, const char* name, long value) {
    CMEnumLiteral* literal = mc::Create<CMEnumLiteral>(enumeration);
    if (!literal)
        return nullptr;
    mc::Set(literal, C::pName, name);
    mc::Set(literal, C::pLiteralValue, value);
    return literal;
}

MCObject* ClassModel::AddTypedAttribute(MCObject* cls, const char* name, MCObject* dataType,
                                        long upperBound) {
    MCObject* attribute = AddAttribute(cls, name, StringOf(dataType, C::pCppType).c_str(), 0);
    if (!attribute)
        return nullptr;
    mc::Set(attribute, C::pAttributeType, dataType);
    mc::Set(attribute, C::pUpperBound, upperBound);
    return attribute;
}

ZVTBoolean ClassModel::SetInteger(MCObject* object, short type, long value) {
    return static_cast<bool>(mc::Set(object, type, value));
}

// --- reading ----------------------------------------------------------------------------------------

MCNameSpace* ClassModel::ClassNames(MCObject* package) {
    if (!package || !package->IsType(C::tPackage, MCItem::rttiExact))
        return nullptr;
    return dynamic_cast<MCNameSpace*>(mc::Get<MCObject*>(package, C::pClassNames).value_or(nullptr));
}

MCNameSpace* ClassModel::MemberNames(MCObject* owner) {
    if (!owner || !owner->IsType(C::tModel, MCItem::rttiExact))
        return ClassNames(owner);
    return dynamic_cast<MCNameSpace*>(mc::Get<MCObject*>(owner, C::pPackageNames).value_or(nullptr));
}

std::string ClassModel::NameOf(const MCObject* object) {
    return StringOf(object, C::pName);
}

std::string ClassModel::StringOf(const MCObject* object, short type) {
    return mc::Get<ZVTString>(object, type).value_or(ZVTString()).str();
}

MCObject* ClassModel::TargetOf(const MCObject* object, short type) {
    return mc::Get<MCObject*>(object, type).value_or(nullptr);
}

long ClassModel::IntegerOf(const MCObject* object, short type, long absent) {
    return mc::Get<long>(object, type).value_or(absent);
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
    const mc::SaveResult saved = file ? mc::Save(model, file) : mc::SaveResult();
    written = saved.written;
    return saved.outcome;
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
