#ifndef MCENVIRONMENT_H
#define MCENVIRONMENT_H

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"

class MCObject;
class MCStream;
class MCUDPMap;

/// The host's hook into the end of the library's life and the global section of a stored model: the host
/// derives, installs one instance from its constructor and owns it; the library never deletes it.
class MODELCORE_API MCEnvironment {
public:
    /// Makes the object only; it does not install it.
    MCEnvironment();
    MCEnvironment(const MCEnvironment&) = delete;
    MCEnvironment& operator=(const MCEnvironment&) = delete;

    /// The installed instance, null when the host has installed none.
    static MCEnvironment* GetInstance();

    /// Writes the global section of the persistence root `pObject` through the metamodel registry.
    virtual void SaveGlobals(MCStream& rStream, MCObject* pObject);
    /// Reads the global section opened by token 0x11 into `*ppMap`, making the map (owned by the caller) when
    /// `*ppMap` is null; any other token throws EXUnknownToken, then a null `ppMap` throws EXNoMapPointer.
    virtual void RestoreGlobalToken(char cToken, MCStream& rStream, MCUDPMap** ppMap);
    /// A host that drives its own reading handles its own tokens here; the base reads nothing and returns
    /// false.
    virtual ZVTBoolean HandleUnknownToken(char cToken, MCStream& rStream);

    /// Ends the application's use of the library through the virtual Shutdown.
    void NotifyOfShutdown();

protected:
    /// Installs `pEnvironment`; a null argument or any second installation throws EXUnexpected and the first
    /// stays.
    static void SetSingleton(MCEnvironment* pEnvironment);
    /// Ends the interface library, then the core (HUB::Terminate, then MdlCore::Terminate).
    virtual void Shutdown();
    /// Not virtual, as the library never deletes an environment; destroying the installed one uninstalls it.
    ~MCEnvironment();

private:
    static MCEnvironment* c_pxSingleton;
};

#endif
