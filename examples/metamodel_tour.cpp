// A host registers the metamodel of a small class-diagram tool and prints what the library knows
// about it: the hierarchy, owners, flattened properties with their clip values, and the names
// the user interface shows. Then it builds a few generic objects, edits them through accessors, lets
// one refer to another and expunges the target, and prints what an observer on the root hears.
//
// It keeps to the plain API on purpose, to show the registry, accessor and subscriber calls themselves;
// the sample host (class_diagram and examples/classmodel) shows the same work through the layer for hosts
// in ModelCore/ModelCoreModern.h.

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "ModelCore/ModelCore.h"

namespace {

// Type codes of the host. Stored in its models, so they never change.
enum : short {
    tElement = 1000,
    tNamed = 1001,
    tPackage = 1010,
    tClass = 1011,
    tAttribute = 1012,
    tAssociation = 1013,
    tInterface = 1014,
    tModule = 1020,  // an alias: old models called packages modules
};
enum : short { pName = 1100, pVisibility = 1101, pMultiplicity = 1102, pEnd = 1103, pEnds = 1104 };

// Describes the items of a type for the registry; the tour makes no objects, so none are built.
class DescribedFactory : public MCFactory {
public:
    explicit DescribedFactory(unsigned int size) : m_uSize(size) {}
    MCItem* CreateItem(short, MCObject*, MCFactoryContext*) override { return nullptr; }
    unsigned int GetItemSize(short) override { return m_uSize; }

private:
    unsigned int m_uSize;
};

class TourEnvironment : public MCEnvironment {
public:
    TourEnvironment() { SetSingleton(this); }
};

std::vector<short> Sorted(const ZVTOrderedVectorT<short>& codes) {
    std::vector<short> out;
    for (size_t i = 0; i < codes.Length(); ++i)
        out.push_back(codes[i]);
    std::sort(out.begin(), out.end());
    return out;
}

std::string Name(short code, const char* nomenclature = nullptr) {
    ZVTString name = MCFactoryRegistry::Lookup(code, ZVTString(nomenclature));
    return name.IsNull() ? "Undefined" : name.str();
}

void RegisterMetamodel() {
    using R = MCFactoryRegistry;
    // Subtypes before supertypes on purpose: the registry joins them when the supertype comes.
    R::RegisterConcreteObject(tClass, "Class", tNamed, tPackage, new DescribedFactory(96), true, false);
    R::RegisterConcreteObject(tInterface, "Interface", tClass, tPackage, new DescribedFactory(96), true,
                              false);
    R::RegisterConcreteObject(tAttribute, "Attribute", tNamed, tClass, new DescribedFactory(80), true, false);
    R::RegisterConcreteObject(tAssociation, "Association", tElement, tPackage, new DescribedFactory(80), 1,
                              0);
    R::RegisterConcreteObject(tPackage, "Package", tNamed, 0, new DescribedFactory(88), true, false);
    R::AddOwnerType(tPackage, tPackage);
    R::RegisterAbstractObject(tNamed, "NamedElement", tElement);
    R::RegisterAbstractObject(tElement, "Element", 0);
    R::RegisterAliasObject(tModule, "Module", 0, tPackage, true, false);

    // Host properties as aliases of the core's value types (Integer 87, String 91, ...).
    R::RegisterAliasProperty(pName, "Name", MCCodes::pString, true, false, false, true);
    R::RegisterAliasProperty(pVisibility, "Visibility", MCCodes::pInteger, true, false, false, false);
    R::RegisterAliasProperty(pMultiplicity, "Multiplicity", MCCodes::pString, true, false, false, false);
    R::RegisterAliasProperty(pEnd, "End", MCCodes::pReference, true, false, false, false);
    R::RegisterAliasProperty(pEnds, "Ends", MCCodes::pReferenceList, true, false, false, false);

    const short named[] = {pName, 0};
    R::AddPropertyUsages(tNamed, named, 1);
    R::AddPropertyUsage(tClass, pVisibility, R::clipUndecided);
    R::AddPropertyUsage(tAttribute, pMultiplicity, 0);
    R::AddPropertyUsage(tAssociation, pEnds, 1);  // copying an association brings its ends along
    R::SetClipFlag(tClass, pVisibility, 0);
    MCMetaInfo::RegisterPropertyInheritance(tAttribute, pMultiplicity);

    for (short code : {tPackage, tClass, tAttribute, tAssociation})
        MCMetaInfo::SetFlags(code, 1);
    R::AddName(tClass, "German", "Klasse");
    R::AddName(tAttribute, "German", "Attribut");
    R::AddName(tPackage, "German", "Paket");
}

void PrintType(short code) {
    using R = MCFactoryRegistry;
    unsigned long flags = 0;
    R::GetFlags(code, flags);
    const char* kind = (flags & R::flagAbstract) ? "abstract" : (flags & R::flagAlias) ? "alias" : "concrete";
    std::printf("%-12s %5d  %-8s  supertype %-12s  shown as \"%s\"\n", Name(code).c_str(), code, kind,
                Name(R::GetSupertype(code)).c_str(), Name(code, "German").c_str());
    ZVTOrderedVectorT<short> owners;
    if (R::GetOwnerTypes(code, owners)) {
        std::printf("    owners:");
        for (size_t i = 0; i < owners.Length(); ++i)
            std::printf(" %s", Name(owners[i]).c_str());
        std::printf("   item size %u bytes\n", R::GetItemSize(code));
    }
    ZVTOrderedVectorT<short> usages;
    R::GetPropertyUsages(code, usages, R::usageCore | R::flagWithInherited, nullptr);
    for (size_t i = 0; i < usages.Length(); ++i) {
        short property = usages[i];
        std::printf("    property %-13s clip 0x%04x%s\n", Name(property).c_str(),
                    static_cast<unsigned>(R::GetClipFlag(code, property)),
                    MCMetaInfo::IsInheritable(code, property) ? "  inherited by heirs" : "");
    }
}

// Prints each event it hears as one line.
class PrintingObserver : public MCSubscriber {
public:
    void Notify(MCEvent& event) override {
        auto* object = static_cast<MCObject*>(event.GetSubject());
        ZVTString name;
        object->GetPropertyString(MCCodes::pName, name);
        switch (event.GetEventType()) {
            case MCEvent::PropertySet:
                std::printf("  object %ld (%s): property %s set\n", object->GetId(), name.data(),
                            Name(event.GetProperty()->GetType()).c_str());
                break;
            case MCEvent::PropertyNulled:
                std::printf("  object %ld (%s): property %s nulled\n", object->GetId(), name.data(),
                            Name(event.GetProperty()->GetType()).c_str());
                break;
            case MCEvent::SubjectDestroyed:
                std::printf("  object %ld (%s) goes\n", object->GetId(), name.data());
                break;
            case MCEvent::ReferenceCleared:
                std::printf("  object %ld (%s): a reference to it was cleared\n", object->GetId(),
                            name.data());
                break;
            default:
                break;
        }
    }
};

void EditSomeObjects() {
    // The observer watches the root only: the ownees' edits climb to it, their ends do not.
    std::printf("\nA few generic objects, watched by an observer on the root:\n");
    PrintingObserver observer;
    auto* root = static_cast<MCObject*>(
        MCFactoryRegistry::CreateItem(MCGenericObject::c_sType, nullptr, nullptr, nullptr));
    root->AddSubscriber(&observer, MCEvent::subscriberObserver);
    MCSPropertyAccessorT<ZVTString> name(ZVTString("root"));
    root->SetProperty(MCCodes::pName, name, MCPropertyAccessor::accessAdd);
    for (long i = 1; i <= 3; ++i) {
        auto* child = static_cast<MCObject*>(
            MCFactoryRegistry::CreateItem(MCGenericObject::c_sType, root, nullptr, nullptr));
        MCSPropertyAccessorT<ZVTString> childName(ZVTString(("child " + std::to_string(i)).c_str()));
        child->SetProperty(MCCodes::pName, childName, MCPropertyAccessor::accessAdd);
        MCSPropertyAccessorT<long> weight(i * 10);
        child->SetProperty(MCCodes::pInteger, weight, MCPropertyAccessor::accessAdd);
        // The same value again changes nothing and tells nobody.
        child->SetProperty(MCCodes::pInteger, weight, MCPropertyAccessor::accessAdd);
    }
    MCObject* first = root->GetFirstOwnee();
    MCSPropertyAccessorT<long> nothing;
    first->NullProperty(MCCodes::pInteger, nothing);
    // The last child refers to the first; when the first goes, the reference is cleared by an edit.
    MCObject* last = first->GetNextSibling()->GetNextSibling();
    MCSRefAccessor toFirst(first);
    last->SetProperty(MCCodes::pParent, toFirst, MCPropertyAccessor::accessAdd);  // a reference
    first->Expunge(true);
    MCSRefRawAccessor parent;
    std::printf(
        "  after object 2 went, object %ld's Parent is %s\n", last->GetId(),
        last->GetProperty(MCCodes::pParent, parent) && parent.GetValue() == nullptr ? "null" : "still set");
    std::printf("  root %ld owns %ld objects; ids resolve: %s\n", root->GetId(), root->GetOwneeCount(),
                MCObject::ResolveId(root->GetId()) == root ? "yes" : "no");
    root->Expunge(true);
}

}  // namespace

int main() {
    TourEnvironment environment;
    MdlCore::Initialize();
    RegisterMetamodel();

    std::printf("ModelCore %.1f: metamodel of the class-diagram host\n\n", MdlCore::GetVersion());
    ZVTOrderedVectorT<short> objects;
    MCFactoryRegistry::GetObjectTypes(objects, ~MCFactoryRegistry::flagProperty);
    for (short code : Sorted(objects))
        PrintType(code);

    std::printf("\n\"Module\" stands for %s; \"Klasse\" in German is type %d.\n",
                Name(MCFactoryRegistry::Translate(tModule, true)).c_str(),
                MCFactoryRegistry::Lookup(ZVTString("Klasse"), "German"));
    ZVTOrderedVectorT<short> reportable;
    MCMetaInfo::GetObjectTypes(1, 0, reportable);
    std::printf("%zu types are offered to the user.\n", reportable.Length());
    EditSomeObjects();

    environment.NotifyOfShutdown();
    return 0;
}
