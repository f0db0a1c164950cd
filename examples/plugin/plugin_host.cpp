// A class-diagram host that takes its naming rule from a plugin: plugin_host PLUGIN. It registers a proxy
// of the plugin's rule on the Name of the classes of one model, loads the library from the path it is
// given, and renames a class twice; the plugin refuses the second name. Without the plugin the rule is
// missing (message 603) and every name passes.

#include <cstdio>
#include <string>

#include "examples/classmodel/ClassModel.h"

namespace {

std::string Rename(MCObject* cls, const char* name) {
    ClassModel::RenameClass(cls, name);
    return ClassModel::NameOf(cls);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: plugin_host PLUGIN\n");
        return 2;
    }
    CMSession session;
    MCObject* model = ClassModel::NewModel("Shop");
    MCObject* cls = ClassModel::AddClass(ClassModel::AddPackage(model, "sales"), "Order");
    MCExternalPropertySemantic naming("ClassNaming", "CapitalizedClassName", model, false);
    MCPropertySemanticRegistry::GetInstance()->RegisterExternalSemantic(CMCodes::tClass, CMCodes::pName,
                                                                        &naming, false);

    ZVTString detail;
    const CComponentManager::load_result loaded = CComponentManager::LoadComponentLibrary(argv[1], &detail);
    const char* const results[] = {"loaded", "cannot open", "no entry point", "refused", "already loaded"};
    std::printf("%s: %s%s%s\n", argv[1], results[loaded], detail.IsNull() ? "" : ": ", detail.data());
    std::printf("rename to Invoice: %s\n", Rename(cls, "Invoice").c_str());
    std::printf("rename to invoice: %s\n", Rename(cls, "invoice").c_str());

    CComponentManager::Terminate();
    mc::ExpungeModel(model);
    return loaded == CComponentManager::loadOk ? 0 : 1;
}
