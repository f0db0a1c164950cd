// The README's first model, both ways: on the layer for hosts (ModelCore/ModelCoreModern.h) and on the
// plain API beside it. The README's snippets are this file's lines in order (the ReadmeFirstModel test
// checks that); the printing is this file's own. Prints what each way read back.

#include <cstdio>
#include <optional>

#include "ModelCore/ModelCoreModern.h"

#include "ModelCore/ModelCore.h"

namespace {

constexpr short c_sPackage = 1010;       // the host's type codes: Package on the layer,
constexpr short c_sPlainPackage = 1011;  // and its twin on the plain API

class Package : public mc::HostClass<c_sPackage> {
    friend mc::FactoryOf<Package>;
    using HostClass::HostClass;
};

// The plain API's take: the two constructors, the level registration and the factory by hand.
class PlainPackage : public MCObject {
    friend class MCObjectFactoryT<PlainPackage, MCObject>;
    PlainPackage(short type, MCFactorySignature& s, MCFactoryContext* c) : MCObject(type, s, c) {
        RegisterLevel(c_sPlainPackage, c);
    }
    PlainPackage(MCObject* owner, MCFactoryContext* c) : MCObject(c_sPlainPackage, owner, c) {
        RegisterLevel(c_sPlainPackage, c);
    }
    ~PlainPackage() override = default;
};

struct PositiveCount : MCPropertySemantic {
    result Fire(mode, MCObject*, MCProperty*, MCPropertySemanticContext* context) override {
        auto* accessor =
            static_cast<MCSPropertyRawAccessorT<long>*>(context->GetActiveAccessor()->m_pxAccessor);
        return accessor->GetValue() > 0 ? resultContinue : resultRefused;
    }
    unsigned long GetInterests() const override { return PreEdit; }
};

// The plain API: the core stays up, as nothing here ends it.
void Plain() {
    MdlCore::Initialize();  // registers the core types (GenericObject, Integer, String, ...)
    auto* root = static_cast<MCObject*>(
        MCFactoryRegistry::CreateItem(MCGenericObject::c_sType, nullptr, nullptr, nullptr));
    auto* node = static_cast<MCObject*>(
        MCFactoryRegistry::CreateItem(MCGenericObject::c_sType, root, nullptr, nullptr));

    MCSPropertyAccessorT<long> count(42);  // active: runs the rules, tells the subscribers
    node->SetProperty(MCCodes::pInteger, count, MCPropertyAccessor::accessAdd);  // made on first set
    MCSPropertyRawAccessorT<long> read;          // raw: moves the value and nothing else
    node->GetProperty(MCCodes::pInteger, read);  // read.GetValue() == 42
    std::printf("plain: %ld\n", read.GetValue());

    root->Expunge(true);  // the one way out: takes the subtree along

    // Registers the type under AbstractObject; the registry owns the factory.
    new MCObjectFactoryT<PlainPackage, MCObject>(c_sPlainPackage, "PlainPackage", MCCodes::tAbstractObject, 0,
                                                 10, 0, false, false);
    static PositiveCount c_xPositiveCount;
    MCFactoryContext context;
    MCPropertySemanticRegistry::Register(c_sPlainPackage, &context, MCCodes::pInteger, &c_xPositiveCount,
                                         false, false);
    MCObject* package =
        static_cast<MCObject*>(MCFactoryRegistry::CreateItem(c_sPlainPackage, nullptr, nullptr, nullptr));
    MCSPropertyAccessorT<long> negative(-1);
    std::printf("plain rule: %s\n",
                package->SetProperty(MCCodes::pInteger, negative, MCPropertyAccessor::accessAdd) ? "applied"
                                                                                                 : "refused");
    package->Expunge(true);
}

// The layer for hosts: the last Library ends the core.
void Modern() {
    mc::Library library;  // initializes; shuts the core down at scope end
    MCGenericObject* root = mc::Create<MCGenericObject>(nullptr);
    MCGenericObject* node = mc::Create<MCGenericObject>(root);
    mc::EditResult edit = mc::Set(node, MCCodes::pInteger, 42);          // applied; or refused, invalid, ...
    std::optional<long> count = mc::Get<long>(node, MCCodes::pInteger);  // 42; empty when absent or nulled
    long heard = 0;
    mc::Subscription watch = mc::Observe(root, [&heard](MCEvent&) { ++heard; });  // unsubscribes when it goes
    mc::Set(node, MCCodes::pInteger, 43);  // the root's observer hears its subtree
    for (MCObject* child : mc::Ownees(root)) {
        child->Expunge(true);  // live: the body may expunge the current ownee
    }
    root->Expunge(true);
    std::printf("modern: %s %ld, heard %ld\n", edit ? "applied" : "not applied", count.value_or(0), heard);

    mc::RegisterClass<Package>("Package", mc::ClassOptions().Under(MCCodes::tAbstractObject));
    mc::Rule positive =
        mc::OnEdit(Package::c_sType, MCCodes::pInteger,
                   [](MCPropertySemantic::mode, MCObject*, MCProperty*, MCPropertySemanticContext* context) {
                       return mc::Incoming<long>(context).value_or(0) > 0 ? MCPropertySemantic::resultContinue
                                                                          : MCPropertySemantic::resultRefused;
                   });  // PreEdit by default; deregistered when the handle goes
    Package* package = mc::Create<Package>(nullptr);
    std::printf("modern rule: %s\n", mc::Set(package, MCCodes::pInteger, -1) ? "applied" : "refused");
    package->Expunge(true);
}

}  // namespace

int main() {
    Plain();
    Modern();
    return 0;
}
