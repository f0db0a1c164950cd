#ifndef RULETESTSUPPORT_H
#define RULETESTSUPPORT_H

// A small host metamodel for the rule tests: Shape, Box derived from Shape and Crate derived from Box,
// each class level registering itself the way a host class does, and rules that write what they see into
// one shared log. Rules are locals of a test and leave the registries when they die.

#include <map>
#include <string>

#include "ModelCore/ZVFWMC/MCCodes.h"
#include "support/ModelTestSupport.h"

/// The order of firing, as "name:mode name:mode".
inline std::string& RuleLog() {
    static std::string log;
    return log;
}

inline void Record(const std::string& name, unsigned long mode) {
    char text[24];
    std::snprintf(text, sizeof text, "%lx", mode);
    RuleLog() += (RuleLog().empty() ? "" : " ") + name + ":" + text;
}

/// An object rule that logs the modes it is interested in and answers `answer`.
class ObjectRule : public MCObjectSem {
public:
    ObjectRule(std::string name, unsigned long interests, result answer = resultContinue)
        : m_sName(std::move(name)), m_nInterests(interests), m_eAnswer(answer) {}

    result Fire(mode nMode, MCObject* /*object*/, MCObjectSemContext* /*context*/) override {
        if ((nMode & m_nInterests) == 0)
            return resultContinue;
        Record(m_sName, nMode);
        return m_eAnswer;
    }
    unsigned long GetInterests() const override { return m_nInterests; }

    std::string m_sName;
    unsigned long m_nInterests;
    result m_eAnswer;
};

/// A property rule that logs "name:mode" ("name@object:mode" with the object's name in `m_pxNames` when
/// set), then runs `m_xAct` if set and answers its result, else `answer`.
class PropertyRule : public MCPropertySemantic {
public:
    PropertyRule(std::string name, unsigned long interests, result answer = resultContinue)
        : m_sName(std::move(name)), m_nInterests(interests), m_eAnswer(answer) {}
    ~PropertyRule() { MCPropertySemanticRegistry::GetInstance()->Deregister(this); }

    result Fire(mode nMode, MCObject* object, MCProperty* property,
                MCPropertySemanticContext* context) override {
        if (!m_pxNames)
            Record(m_sName, nMode);
        else
            Record(m_sName + "@" + (m_pxNames->count(object) ? m_pxNames->at(object) : "?"), nMode);
        m_pxLastProperty = property;
        return m_xAct ? m_xAct(nMode, object, property, context) : m_eAnswer;
    }
    unsigned long GetInterests() const override { return m_nInterests; }

    std::string m_sName;
    unsigned long m_nInterests;
    result m_eAnswer;
    const std::map<const MCObject*, std::string>* m_pxNames = nullptr;
    MCProperty* m_pxLastProperty = nullptr;
    result (*m_xAct)(mode, MCObject*, MCProperty*, MCPropertySemanticContext*) = nullptr;
};

/// Shape (7701), Box (7702) derived from it and Crate (7703) derived from Box: three class levels, each
/// registering its type the way a host class does.
class Shape : public MCObject {
public:
    static constexpr short c_sType = 7701;
    static constexpr short c_sWidth = 7711;  // an Integer
    static constexpr short c_sLabel = 7712;  // a String
    static constexpr short c_sArea = 7713;   // an Integer calculated on read

    static void Register();

protected:
    friend class MCObjectFactoryT<Shape, MCObject>;
    Shape(short type, MCFactorySignature& signature, MCFactoryContext* context)
        : MCObject(type, signature, context) {
        RegisterLevel(c_sType, context);
    }
    Shape(MCObject* owner, MCFactoryContext* context, short type = c_sType) : MCObject(type, owner, context) {
        RegisterLevel(c_sType, context);
    }
    ZVTBoolean IsType_(short type) const override { return type == c_sType || MCObject::IsType_(type); }
};

/// Boxes can have heirs: objects that inherit from them and hear of their edits.
class Box : public Shape {
public:
    static constexpr short c_sType = 7702;

    /// Makes `heir` inherit from this box; the box watches it, so a dying heir leaves the set by itself.
    void AddHeir(MCObject* heir) {
        m_xHeirs.Insert(heir);
        heir->AddSubscriber(this, MCEvent::subscriberReferenceHolder);
    }
    const MCHeirSet& Heirs() const { return m_xHeirs; }
    void GetHeirs(const MCHeirSet*& heirs) override { heirs = m_xHeirs.GetCount() ? &m_xHeirs : nullptr; }

protected:
    friend class MCObjectFactoryT<Box, MCObject>;
    Box(short type, MCFactorySignature& signature, MCFactoryContext* context)
        : Shape(type, signature, context) {
        RegisterLevel(c_sType, context);
    }
    Box(MCObject* owner, MCFactoryContext* context, short type = c_sType) : Shape(owner, context, type) {
        RegisterLevel(c_sType, context);
    }
    ~Box() override {
        MCHeirSetIter heirs(m_xHeirs);
        while (++heirs) {
            if (MCObject* heir = heirs.GetValue())
                heir->RemoveSubscriber(this, MCEvent::subscriberReferenceHolder);
        }
    }
    ZVTBoolean IsType_(short type) const override { return type == c_sType || Shape::IsType_(type); }

private:
    MCHeirSet m_xHeirs;
};

/// Crates are persistence units while c_bUnit is set.
class Crate : public Box {
public:
    static constexpr short c_sType = 7703;
    static inline bool c_bUnit = false;

private:
    friend class MCObjectFactoryT<Crate, MCObject>;
    Crate(short type, MCFactorySignature& signature, MCFactoryContext* context)
        : Box(type, signature, context) {
        RegisterLevel(c_sType, context);
    }
    Crate(MCObject* owner, MCFactoryContext* context) : Box(owner, context, c_sType) {
        RegisterLevel(c_sType, context);
    }
    ZVTBoolean IsPersistenceUnit() override { return c_bUnit; }
    ZVTBoolean IsType_(short type) const override { return type == c_sType || Box::IsType_(type); }
};

inline void Shape::Register() {
    static bool registered = false;
    if (registered)
        return;
    registered = true;
    MCFactoryRegistry::RegisterAliasProperty(c_sWidth, "Width", MCCodes::pInteger, true, false, false, false);
    MCFactoryRegistry::RegisterAliasProperty(c_sLabel, "Label", MCCodes::pString, true, false, false, false);
    MCFactoryRegistry::RegisterAliasProperty(c_sArea, "Area", MCCodes::pInteger, true, false, true, false);
    new MCObjectFactoryT<Shape, MCObject>(Shape::c_sType, "Shape", 1, 0, 10, 0, true, false);
    new MCObjectFactoryT<Box, MCObject>(Box::c_sType, "Box", Shape::c_sType, 0, 10, 0, true, false);
    new MCObjectFactoryT<Crate, MCObject>(Crate::c_sType, "Crate", Box::c_sType, 0, 10, 0, true, false);
}

/// The model fixture with the shapes registered and an empty rule log.
class RuleTest : public ModelTest {
protected:
    void SetUp() override {
        ModelTest::SetUp();
        Shape::Register();
        RuleLog().clear();
    }

    /// Adds an object rule to `type`'s handler, as a host class's constructor would.
    static void AddRule(short type, MCObjectSem& rule) {
        MCFactoryContext context;
        MCObjectSemReg::Register(type, &context, &rule, false);
    }
    /// Adds a property rule on `propertyType` of `type`.
    static void AddRule(short type, short propertyType, PropertyRule& rule) {
        MCFactoryContext context;
        MCPropertySemanticRegistry::Register(type, &context, propertyType, &rule, false, false);
    }
    static std::string TakeLog() {
        std::string log;
        log.swap(RuleLog());
        return log;
    }
};

#endif
