#ifndef AIC_H
#define AIC_H

// Stand-in for the add-in controller: components that run rules by name for the model core. A component
// is registered in-process under a name, or comes from a plugin, a shared library that the host loads from
// a path it names; the library's entry point registers its components. Nothing is read from the
// environment or from a file. Failures are results, never messages: the host decides what a user hears.

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTString.h"

/// A component: runs the semantics it knows by name on a model it sees only through ids. Hosts and plugins
/// derive from it and implement FireSemantic_; whoever registers a component owns it and must unregister
/// it (or unload its library) before deleting it.
class MODELCORE_API ControllerInterface {
public:
    ControllerInterface() = default;
    ControllerInterface(const ControllerInterface&) = delete;
    ControllerInterface& operator=(const ControllerInterface&) = delete;
    virtual ~ControllerInterface();

    /// Runs `rSemanticName` on the object `nObjectId` and gives its result, read by the caller as an object
    /// or property semantic result: `nPropertyType` is 0 for an object semantic, else the property's type;
    /// `nScopeId` is the proxy's scope or 0; `nMode` the semantic's mode bit. A library unloaded while a
    /// call runs is closed only once the outermost call has returned.
    long FireSemantic(const ZVTString& rSemanticName, long nScopeId, long nObjectId, long nPropertyType,
                      unsigned int nMode);

protected:
    /// What the component does for FireSemantic; an unknown semantic name is the component's to answer.
    virtual long FireSemantic_(const ZVTString& rSemanticName, long nScopeId, long nObjectId,
                               long nPropertyType, unsigned int nMode) = 0;
};

/// What a plugin's entry point registers its components through; valid only during that call.
class MODELCORE_API AICComponentRegistrar {
public:
    /// Registers `pComponent` (owned by the plugin, which keeps it alive while the library is loaded) under
    /// `rName`; false for a null component, an empty name or a name already taken.
    virtual ZVTBoolean RegisterComponent(const ZVTString& rName, ControllerInterface* pComponent) = 0;

protected:
    ~AICComponentRegistrar() = default;
};

/// The name of the entry point every plugin defines, with the signature AICRegisterComponentsFunction:
/// it registers the plugin's components and answers true, or false to refuse being loaded.
#define AIC_ENTRY_POINT_NAME "AICRegisterComponents"
/// Declares a plugin's entry point with C linkage and exported: `AIC_PLUGIN_ENTRY ZVTBoolean
/// AICRegisterComponents(AICComponentRegistrar* pRegistrar) { ... }`.
#define AIC_PLUGIN_ENTRY extern "C" __attribute__((visibility("default")))
/// The type of a plugin's entry point.
extern "C" typedef ZVTBoolean (*AICRegisterComponentsFunction)(AICComponentRegistrar* pRegistrar);

/// The components known in this process, by name, and the plugin libraries they came from. Holds no
/// component: in-process ones stay with the host, a plugin's with its library.
class MODELCORE_API CComponentManager {
public:
    /// What LoadComponentLibrary did; the values must not change.
    enum load_result {
        loadOk = 0,             ///< loaded; the entry point registered what it wanted to
        loadCannotOpen = 1,     ///< no such file, not a shared library, or its dependencies are missing
        loadNoEntryPoint = 2,   ///< the library lacks AIC_ENTRY_POINT_NAME; it was closed again
        loadRefused = 3,        ///< the entry point answered false, threw or unloaded its own library; its
                                ///< registrations were undone
        loadAlreadyLoaded = 4,  ///< this library is loaded already; nothing changed
    };

    /// The component registered under `rName`, null when none is.
    static ControllerInterface* FindComponent(const ZVTString& rName);
    /// Registers a host's own component (not owned) under `rName`; false for a null component, an empty
    /// name or a name already taken.
    static ZVTBoolean RegisterComponent(const ZVTString& rName, ControllerInterface* pComponent);
    /// Forgets the component under `rName`, whoever registered it; false when there is none.
    static ZVTBoolean UnregisterComponent(const ZVTString& rName);

    /// Loads the shared library at `rPath` and calls its entry point. A path without a slash is taken
    /// relative to the current directory, never looked up on the loader's search path. On loadCannotOpen
    /// `pDetail`, when given, receives the loader's own words.
    static load_result LoadComponentLibrary(const ZVTString& rPath, ZVTString* pDetail = nullptr);
    /// Unregisters the components of the library loaded from `rPath` (any spelling of the same file) and
    /// closes it; false when no such library is loaded. A plugin that handed the core anything else (rules,
    /// subscribers) must take it back first.
    static ZVTBoolean UnloadComponentLibrary(const ZVTString& rPath);
    /// Unregisters every component and closes every library; the host calls it when it ends.
    static void Terminate();
};

#endif
