// The example plugin loaded by path into a class-diagram host: its rule refuses a class name without a
// leading capital in the model its proxy is scoped to; unloaded, the rule is missing (message 603).

#include <gtest/gtest.h>

#include "examples/classmodel/ClassModel.h"

TEST(ClassNamingPluginTest, ThePluginsRuleJudgesClassNamesInItsScope) {
    CMSession session;
    HUBScopedMessageHandler messages;
    MCObject* model = ClassModel::NewModel("Shop");
    MCObject* other = ClassModel::NewModel("Elsewhere");
    MCObject* order = ClassModel::AddClass(ClassModel::AddPackage(model, "sales"), "Order");
    MCObject* outside = ClassModel::AddClass(ClassModel::AddPackage(other, "misc"), "Thing");
    MCExternalPropertySemantic naming("ClassNaming", "CapitalizedClassName", model, false);
    MCPropertySemanticRegistry::GetInstance()->RegisterExternalSemantic(CMCodes::tClass, CMCodes::pName,
                                                                        &naming, false);
    ASSERT_EQ(CComponentManager::LoadComponentLibrary(CLASS_NAMING_PLUGIN), CComponentManager::loadOk);

    std::string log;
    for (auto [cls, name] : {std::pair<MCObject*, const char*>{order, "Invoice"},
                             {order, "invoice"},
                             {order, ""},
                             {outside, "thing"}}) {
        MCSPropertyAccessorT<ZVTString> accessor{ZVTString(name)};
        log += cls->SetProperty(CMCodes::pName, accessor, MCPropertyAccessor::accessAdd) ? "+" : "-";
        log += ClassModel::NameOf(cls) + " ";
    }
    // The host's own rule counts a revision per name given: a refused name is none.
    EXPECT_EQ(log + std::to_string(ClassModel::IntegerOf(order, CMCodes::pRevision)),
              "+Invoice -Invoice -Invoice +thing 2");

    EXPECT_TRUE(CComponentManager::UnloadComponentLibrary(CLASS_NAMING_PLUGIN));
    ClassModel::RenameClass(order, "invoice");
    EXPECT_EQ(ClassModel::NameOf(order) + "\n" + messages.Log(),
              "invoice\nmessage 603 (style 0x30): ClassNaming\nmessage 603 (style 0x30): ClassNaming");
    model->Expunge(true);
    other->Expunge(true);
}
