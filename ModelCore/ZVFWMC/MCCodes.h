#ifndef MCCODES_H
#define MCCODES_H

/// The numbers a host meets, by name: the core's object and property type codes, the ids and styles of the
/// messages the library shows, and the hint codes of a PropertySet event. The codes stand in saved models
/// and must never change.
///
/// The other named numbers live beside the class that reads them:
/// - event types and subscriber bits: MCEvent::event_type (MCEvent::PropertySet, ...) and
///   MCEvent::subscriber_type (MCEvent::subscriberObserver, ...);
/// - item flags: MCItem::item_flag (MCItem::itemNulled, MCItem::itemUndeletable, ...) and the type test
///   modes MCItem::rttiExact and MCItem::rttiDerived;
/// - accessor flags: MCPropertyAccessor::access_flag (MCPropertyAccessor::accessAdd, ...);
/// - registration and clip flags: MCFactoryRegistry::flagObject, ..., MCFactoryRegistry::clipFollow, ...;
/// - rule modes and results: MCObjectSem::mode, MCObjectSem::result, MCPropertySemantic::mode and
///   MCPropertySemantic::result;
/// - the variable kinds of a template: MCDataButlerVariable::vartype;
/// - exception codes: EXBase::exception_code (EXBase::codeDuplicateFactory, ..., EXBase::codeLast).
struct MCCodes {
    /// Core object types.
    enum : short {
        tAbstractObject = 1,    ///< the abstract root of every object type
        tGenericObject = 2,     ///< MCGenericObject, the core's concrete object
        tAddInHook = 27,        ///< MCAddInHook, an anchor for add-in rules
        tNameSpace = 301,       ///< MCNameSpace
        tStringInfo = 302,      ///< MCStringInfo, one name's entry in a name space
        tPersistenceRoot = 530  ///< reserved for the host's persistence root; the core registers none
    };
    /// Core concrete property types.
    enum : short {
        pFloat = 85,             ///< float
        pFloatList = 86,         ///< list of float
        pInteger = 87,           ///< long
        pIntegerList = 88,       ///< list of long
        pReference = 89,         ///< one reference to an object
        pReferenceList = 90,     ///< list of references
        pString = 91,            ///< ZVTString
        pStringList = 92,        ///< list of ZVTString
        pOriginId = 93,          ///< ZvUCObjectId, carried for the host
        pTargetReference = 248,  ///< a tgt_target pointer, carried for the host
        pDouble = 1036           ///< double
    };
    /// Core alias property types.
    enum : short {
        pId = 132,                 ///< Integer: an object's id, embedded in every object
        pIdSpace = 133,            ///< Reference: an id space, for the host's use
        pName = 147,               ///< String: an object's name, which name spaces read
        pParent = 152,             ///< Reference: the source an object inherits from
        pStringInfoList = 303,     ///< ReferenceList: a name space's entries
        pValidTypeList = 304,      ///< IntegerList: the object types a name space admits
        pStringInfoObject = 305,   ///< Reference: the object an entry names
        pStringInfoCount = 306,    ///< Integer: how many objects share an entry's name
        pNameSpaces = 307,         ///< ReferenceList: the name spaces below a name space
        pCloneId = 582,            ///< Integer: the id of the object this one was cloned from
        pAncestorNameSpace = 583,  ///< Reference: the name space above a name space
        pTypeCode = 1165           ///< Integer: a type code held as a value, for the host's use
    };
    /// The MCMetaInfo flags the core gives its concrete object types: reportable, plus host-defined bits.
    enum : unsigned long {
        infoCoreObject = 5,  ///< NameSpace, StringInfo and GenericObject
        infoAddInHook = 21   ///< AddInHook
    };
    /// Ids of the numbered messages the library shows.
    enum : long {
        msgCannotCreate = 601,           ///< ShowMessage: the type (decimal) cannot be made
        msgUnknownSize = 602,            ///< ShowMessage: the type (decimal) has no size
        msgMissingComponent = 603,       ///< ShowMessage: no component of that name for an external rule
        msgUndeletable = 606,            ///< ShowMessage: an undeletable object is deleted without its owner
        msgUndeclaredClip = 607,         ///< ShowMessage: a clip reference without a usage declaration
        msgUnknownMacro = 59000,         ///< DisplayMessage: a template names an unknown macro
        msgDuplicateFactory = 60505,     ///< DisplayMessage: EXDuplicateFactory's type (decimal)
        msgNoConverter = 60508,          ///< DisplayMessage: no converter to String for the type (decimal)
        msgConverterWithoutText = 60509  ///< DisplayMessage: the type's converter gives no text
    };
    /// The kind every ShowMessage of the library passes.
    enum : long { msgKindInformation = 1 };
    /// Message styles; the library passes them through and reads nothing back.
    enum : long {
        styleTypeCode = 0x10,  ///< ShowMessage of 601 and 602
        styleWarning = 0x30,   ///< ShowMessage of 603, 606 and 607
        styleDisplay = 0x40    ///< every DisplayMessage
    };
    /// Hint codes of a PropertySet event on a list property: how the list changed. A scalar edit gives 0.
    enum : long {
        hintNone = 0,     ///< a scalar value was set
        hintAdded = 1,    ///< values were appended
        hintRemoved = 2,  ///< values were removed
        hintReplaced = 3  ///< the whole list was replaced
    };
};

#endif
