#include "platform/AIC.h"

#include <dlfcn.h>

#include <algorithm>
#include <exception>
#include <map>
#include <string>
#include <vector>

namespace {

struct ComponentEntry {
    ControllerInterface* m_pxComponent;
    void* m_pLibrary;  // the handle of the library that registered it; null for the host's own
};

struct ManagerState {
    std::map<std::string, ComponentEntry> m_xComponents;
    std::vector<void*> m_xLibraries;
    // Handles whose close waits until no component call is running: a component may unload its own
    // library, and its code must still be there when the call returns.
    std::vector<void*> m_xClosing;
    long m_nCalls = 0;
};

ManagerState& State() {
    static ManagerState state;
    return state;
}

void CloseWaiting() {
    ManagerState& state = State();
    if (state.m_nCalls != 0)
        return;
    std::vector<void*> closing;
    closing.swap(state.m_xClosing);
    for (void* handle : closing)
        dlclose(handle);
}

void ForgetComponentsOf(void* library) {
    auto& components = State().m_xComponents;
    for (auto it = components.begin(); it != components.end();) {
        if (it->second.m_pLibrary == library)
            it = components.erase(it);
        else
            ++it;
    }
}

void Close(void* library) {
    ForgetComponentsOf(library);
    State().m_xClosing.push_back(library);
    CloseWaiting();
}

ZVTBoolean Add(const ZVTString& name, ControllerInterface* component, void* library) {
    if (!component || name.IsNull() || name.str().empty())
        return false;
    return State().m_xComponents.emplace(name.str(), ComponentEntry{component, library}).second;
}

class LibraryRegistrar : public AICComponentRegistrar {
public:
    explicit LibraryRegistrar(void* library) : m_pLibrary(library) {}
    ZVTBoolean RegisterComponent(const ZVTString& rName, ControllerInterface* pComponent) override {
        return Add(rName, pComponent, m_pLibrary);
    }

private:
    void* m_pLibrary;
};

// The path as the loader must see it: with a slash, so that no search path is consulted.
std::string LoaderPath(const ZVTString& path) {
    std::string text = path.IsNull() ? std::string() : path.str();
    if (!text.empty() && text.find('/') == std::string::npos)
        text = "./" + text;
    return text;
}

// Counts a running component call; the outermost one to return closes what was unloaded meanwhile, unless
// an exception is on its way out (its type may live in that library).
class CallScope {
public:
    CallScope() : m_nExceptions(std::uncaught_exceptions()) { ++State().m_nCalls; }
    ~CallScope() {
        --State().m_nCalls;
        if (std::uncaught_exceptions() == m_nExceptions)
            CloseWaiting();
    }
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;

private:
    int m_nExceptions;
};

}  // namespace

ControllerInterface::~ControllerInterface() = default;

long ControllerInterface::FireSemantic(const ZVTString& rSemanticName, long nScopeId, long nObjectId,
                                       long nPropertyType, unsigned int nMode) {
    CallScope call;
    return FireSemantic_(rSemanticName, nScopeId, nObjectId, nPropertyType, nMode);
}

ControllerInterface* CComponentManager::FindComponent(const ZVTString& rName) {
    if (rName.IsNull())
        return nullptr;
    const auto& components = State().m_xComponents;
    const auto found = components.find(rName.str());
    return found == components.end() ? nullptr : found->second.m_pxComponent;
}

ZVTBoolean CComponentManager::RegisterComponent(const ZVTString& rName, ControllerInterface* pComponent) {
    return Add(rName, pComponent, nullptr);
}

ZVTBoolean CComponentManager::UnregisterComponent(const ZVTString& rName) {
    return !rName.IsNull() && State().m_xComponents.erase(rName.str()) != 0;
}

CComponentManager::load_result CComponentManager::LoadComponentLibrary(const ZVTString& rPath,
                                                                       ZVTString* pDetail) {
    CloseWaiting();
    const std::string path = LoaderPath(rPath);
    // dlopen of an empty name would hand back the program itself.
    void* handle = path.empty() ? nullptr : dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        if (pDetail) {
            const char* reason = path.empty() ? "empty path" : dlerror();
            *pDetail = ZVTString(reason ? reason : "");
        }
        return loadCannotOpen;
    }
    ManagerState& state = State();
    for (void* loaded : state.m_xLibraries) {
        if (loaded == handle) {
            dlclose(handle);  // the count this call added
            return loadAlreadyLoaded;
        }
    }
    auto entry = reinterpret_cast<AICRegisterComponentsFunction>(dlsym(handle, AIC_ENTRY_POINT_NAME));
    if (!entry) {
        dlclose(handle);
        return loadNoEntryPoint;
    }
    state.m_xLibraries.push_back(handle);
    ZVTBoolean accepted = false;
    {
        // Counted as a component call: an entry point that unloads its own library still returns.
        CallScope call;
        LibraryRegistrar registrar(handle);
        try {
            accepted = entry(&registrar);
        } catch (...) {
            accepted = false;
        }
    }
    auto& libraries = state.m_xLibraries;
    const auto self = std::find(libraries.begin(), libraries.end(), handle);
    if (self == libraries.end())
        return loadRefused;  // it unloaded itself
    if (accepted)
        return loadOk;
    libraries.erase(self);
    Close(handle);
    return loadRefused;
}

ZVTBoolean CComponentManager::UnloadComponentLibrary(const ZVTString& rPath) {
    const std::string path = LoaderPath(rPath);
    void* handle = path.empty() ? nullptr : dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (!handle)
        return false;
    dlclose(handle);  // NOLOAD still counts; the handle stays valid through the library's own count
    auto& libraries = State().m_xLibraries;
    for (auto it = libraries.begin(); it != libraries.end(); ++it) {
        if (*it == handle) {
            libraries.erase(it);
            Close(handle);
            return true;
        }
    }
    return false;
}

void CComponentManager::Terminate() {
    ManagerState& state = State();
    state.m_xComponents.clear();
    std::vector<void*> libraries;
    libraries.swap(state.m_xLibraries);
    for (void* handle : libraries)
        state.m_xClosing.push_back(handle);
    CloseWaiting();
}
