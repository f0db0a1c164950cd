#ifndef FUZZ_CLIP_MODEL_H
#define FUZZ_CLIP_MODEL_H

// The class diagram that paste_fuzz pastes into and paste_seeds copies from, so that the seeds carry the
// types, names, references and ids the fuzz target meets.

#include <vector>

#include "examples/classmodel/ClassModel.h"

struct ClipModel {
    MCObject* model;
    // Three classes (one with an attribute, one specializing another) and an association.
    MCObject* first;
    // A class named like one of the first package's, so that a class pasted here is renamed.
    MCObject* second;
    MCObject* classes[3];
    MCObject* association;
};

// Gives the objects of the tree the ids 1, 2, ... in walk order. A paste binds some buffer ids to the
// objects of the running model that bear them, so a model built afresh for each input must bear the same
// ids each time, and the same as the model the seeds were copied from.
inline void RenumberIds(MCObject* model) {
    std::vector<MCObject*> objects;
    for (MCDepthFirstWalker walker(model, nullptr); walker.Traverse();)
        objects.push_back(walker.GetValue());
    MCIdSpace* space = MCObject::GetIdSpace();
    // All out first: a new id may be another object's old one.
    for (MCObject* object : objects)
        space->RemovePointer(object->GetId(), object);
    long id = 0;
    for (MCObject* object : objects) {
        object->SetId(++id);
        space->RegisterPointer(id, object);
    }
}

inline ClipModel BuildClipModel() {
    ClipModel built{};
    built.model = ClassModel::NewModel("Model");
    built.first = ClassModel::AddPackage(built.model, "Shapes");
    built.second = ClassModel::AddPackage(built.model, "Other");
    const char* const names[] = {"Shape", "Circle", "Canvas"};
    for (int i = 0; i < 3; ++i)
        built.classes[i] = ClassModel::AddClass(built.first, names[i]);
    ClassModel::AddAttribute(built.classes[1], "radius", "double", 0);
    ClassModel::AddSuperclass(built.classes[1], built.classes[0]);
    built.association = ClassModel::AddAssociation(built.first, built.classes[2], built.classes[0], "draws");
    ClassModel::AddClass(built.second, "Shape");
    RenumberIds(built.model);
    return built;
}

#endif
