#ifndef MCFACTORY_H
#define MCFACTORY_H

#include "foundation/ZVTExport.h"

class MCItem;
class MCObject;
class MCFactoryContext;

/// Builds the items of one registered type. Once registered, a factory belongs to the
/// metamodel registry, which deletes it when it ends; a refused factory stays with its maker.
class MODELCORE_API MCFactory {
public:
    virtual ~MCFactory();

    /// Builds one item under `owner`; `code` is the code as asked for, before alias translation.
    /// Returns null when the item cannot be made.
    virtual MCItem* CreateItem(short code, MCObject* owner, MCFactoryContext* context) = 0;

    /// The size in bytes of the item this factory builds for `code`.
    virtual unsigned int GetItemSize(short code) = 0;
};

#endif
