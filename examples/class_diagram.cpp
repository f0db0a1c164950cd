// The sample host: builds a class diagram of a few thousand objects, edits it under the class model's
// rules, saves it, restores it into a fresh tree and checks that the two are equal; then copies a
// package and a few classes and pastes them into other packages and into a second model. With --import it
// reads a class model from an Ecore file instead, prints what it holds, and saves, restores and compares
// that model alone; with --generate it also writes a C++ header for each of its classes, through the data
// butler and the templates cpp_types.tpl and cpp_class.tpl (of --templates DIR, by default those in
// examples/templates of the source tree).
//
//   class_diagram [--out FILE] [--packages N] [--classes N] [--clip-out FILE]
//   class_diagram --import FILE.ecore [--out FILE] [--generate DIR [--templates DIR]]
//
// --clip-out writes the clip buffer of the copied package to FILE. Exits 0 when the restored model
// equals the saved one and the pasted copies check out, 1 when not, 2 when the model cannot be saved or
// read back or the clip buffer cannot be written, 3 for bad arguments, 4 when the Ecore file cannot be
// imported (its name, the line and the reason go to standard error), 5 when the headers cannot be
// generated (a template fails or a file cannot be written).

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ModelCore/ZVFWMC/MCClipboard.h"
#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCNameSpace.h"
#include "examples/classmodel/ClassModel.h"
#include "examples/classmodel/ClassModelButler.h"
#include "examples/classmodel/EcoreImport.h"

namespace {

using C = CMCodes;
using Clock = std::chrono::steady_clock;

const char* const c_apcWords[] = {"Order",    "Customer", "Invoice",   "Product",  "Account",  "Address",
                                  "Payment",  "Shipment", "Item",      "Supplier", "Stock",    "Price",
                                  "Contract", "Region",   "Warehouse", "Carrier",  "Discount", "Tax"};
const char* const c_apcTypes[] = {"int", "string", "bool", "date", "money"};
constexpr int c_nWords = sizeof c_apcWords / sizeof c_apcWords[0];

struct Options {
    std::string m_sOut = "class_diagram.mdl";
    int m_nPackages = 12;
    int m_nClasses = 50;
    std::string m_sClipOut;
    std::string m_sImport;
    std::string m_sGenerate;
    std::string m_sTemplates = MODELCORE_TEMPLATE_DIR;
    bool m_bBuildOptions = false;  // --packages, --classes or --clip-out given
};

// The exit codes of the program; scripts and tests read them.
enum Exit : int {
    exitEqual = 0,
    exitDiffers = 1,
    exitCannotStore = 2,
    exitBadArguments = 3,
    exitImportFailed = 4,
    exitGenerateFailed = 5,
};

struct Tally {
    long m_nRenamed = 0, m_nClassesRemoved = 0, m_nAttributesRemoved = 0;
    long m_nRefusedNames = 0, m_nRefusedGeneralizations = 0;
};

// The same diagram on every run and platform.
class Lcg {
public:
    unsigned Next(unsigned bound) {
        m_uState = m_uState * 1664525u + 1013904223u;
        return (m_uState >> 8) % bound;
    }

private:
    unsigned m_uState = 20240601u;
};

double Milliseconds(Clock::time_point since) {
    return std::chrono::duration<double, std::milli>(Clock::now() - since).count();
}

std::vector<MCObject*> Ownees(MCObject* owner, short type) {
    std::vector<MCObject*> found;
    for (MCObject* child : mc::Ownees(owner)) {
        if (child->IsType(type, MCItem::rttiExact))
            found.push_back(child);
    }
    return found;
}

MCObject* Build(const Options& options, Lcg& random, Tally& tally) {
    MCObject* model = ClassModel::NewModel("Sample diagram");
    // A property the user made up; the model's global section carries it to the next session.
    const short stereotype = MCFactoryRegistry::RegisterUDP("Stereotype", MCCodes::pString, model, true);
    MCFactoryRegistry::AddPropertyUsage(C::tClass, stereotype, MCFactoryRegistry::clipUndecided);
    for (int p = 0; p < options.m_nPackages; ++p) {
        MCObject* package = ClassModel::AddPackage(model, ("package" + std::to_string(p)).c_str());
        std::vector<MCObject*> classes;
        for (int c = 0; c < options.m_nClasses; ++c) {
            // Few words for many classes: the package's name space numbers the repeats.
            MCObject* cls = ClassModel::AddClass(package, c_apcWords[random.Next(c_nWords)]);
            mc::Set(cls, C::pVisibility, random.Next(3));
            if (stereotype != 0 && random.Next(4) == 0)
                mc::Set(cls, stereotype, random.Next(2) ? "entity" : "value");
            for (int a = 0; a < 4; ++a) {
                const std::string name = "attr" + std::to_string(a);
                ClassModel::AddAttribute(cls, name.c_str(), c_apcTypes[random.Next(5)], random.Next(3));
            }
            if (c % 10 == 9 && !ClassModel::AddAttribute(cls, "", "int", 0))
                ++tally.m_nRefusedNames;
            if (!classes.empty() && random.Next(3) == 0)
                ClassModel::AddSuperclass(cls, classes[random.Next(static_cast<unsigned>(classes.size()))]);
            if (c % 20 == 0 && !ClassModel::AddSuperclass(cls, cls))
                ++tally.m_nRefusedGeneralizations;
            classes.push_back(cls);
        }
        for (int a = 0; a < options.m_nClasses * 5 / 8; ++a) {
            const auto count = static_cast<unsigned>(classes.size());
            ClassModel::AddAssociation(package, classes[random.Next(count)], classes[random.Next(count)],
                                       ("assoc" + std::to_string(a)).c_str());
        }
    }
    return model;
}

void Edit(MCObject* model, Lcg& random, Tally& tally) {
    for (MCObject* package : Ownees(model, C::tPackage)) {
        std::vector<MCObject*> classes = Ownees(package, C::tClass);
        for (size_t i = 0; i < classes.size(); ++i) {
            MCObject* cls = classes[i];
            if (i % 11 == 5) {
                // Its name, its attributes and the association ends that named it go with it.
                cls->Expunge(true);
                ++tally.m_nClassesRemoved;
                continue;
            }
            if (i % 7 == 3) {
                ClassModel::RenameClass(cls, c_apcWords[random.Next(c_nWords)]);
                ++tally.m_nRenamed;
            }
            if (i % 5 == 1) {
                std::vector<MCObject*> attributes = Ownees(cls, C::tAttribute);
                if (!attributes.empty()) {
                    attributes[random.Next(static_cast<unsigned>(attributes.size()))]->Expunge(true);
                    ++tally.m_nAttributesRemoved;
                }
            }
        }
    }
}

// Every package and class under `owner`, all the way down, is found under its name in the name space
// of its owner.
bool NamesKept(MCObject* owner) {
    MCNameSpace* names = ClassModel::MemberNames(owner);
    if (!names)
        return false;
    for (short type : {C::tPackage, C::tClass}) {
        for (MCObject* member : Ownees(owner, type)) {
            ZVTString name(ClassModel::NameOf(member));
            if (names->FindObject(name) != member || (type == C::tPackage && !NamesKept(member)))
                return false;
        }
    }
    return true;
}

MCObject* Target(const MCObject* object, short type) {
    return mc::Get<MCObject*>(object, type).value_or(nullptr);
}

std::vector<MCObject*> Superclasses(const MCObject* cls) {
    const mc::Targets superclasses(cls, C::pSuperclasses);
    return {superclasses.begin(), superclasses.end()};
}

bool Holds(const std::vector<MCObject*>& objects, const MCObject* object) {
    return std::find(objects.begin(), objects.end(), object) != objects.end();
}

bool ParseOptions(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const bool hasValue = i + 1 < argc;
        if (std::strcmp(argv[i], "--out") == 0 && hasValue) {
            options.m_sOut = argv[++i];
        } else if (std::strcmp(argv[i], "--packages") == 0 && hasValue) {
            options.m_nPackages = std::atoi(argv[++i]);
            options.m_bBuildOptions = true;
        } else if (std::strcmp(argv[i], "--classes") == 0 && hasValue) {
            options.m_nClasses = std::atoi(argv[++i]);
            options.m_bBuildOptions = true;
        } else if (std::strcmp(argv[i], "--clip-out") == 0 && hasValue) {
            options.m_sClipOut = argv[++i];
            options.m_bBuildOptions = true;
        } else if (std::strcmp(argv[i], "--import") == 0 && hasValue) {
            options.m_sImport = argv[++i];
        } else if (std::strcmp(argv[i], "--generate") == 0 && hasValue) {
            options.m_sGenerate = argv[++i];
        } else if (std::strcmp(argv[i], "--templates") == 0 && hasValue) {
            options.m_sTemplates = argv[++i];
        } else {
            return false;
        }
    }
    // An imported model is neither built nor copied; only an imported one is generated from.
    if (!options.m_sImport.empty())
        return !options.m_bBuildOptions;
    if (!options.m_sGenerate.empty())
        return false;
    return options.m_nPackages >= 0 && options.m_nPackages <= 1000 && options.m_nClasses > 0 &&
           options.m_nClasses <= 1000;
}

long Total(const CMCensus& census) {
    long total = 0;
    for (const auto& entry : census)
        total += entry.second;
    return total;
}

long CountOf(const CMCensus& census, short type) {
    auto found = census.find(type);
    return found == census.end() ? 0 : found->second;
}

// Which original each pasted object copies: the paste reports every object it makes with its id in the
// buffer, the original's. It knows no counterparts in the target, so the paste merges nothing.
class PasteLog final : public MCClipIdConverter {
public:
    long ConvertId(long) override { return 0; }
    void AddConversion(long oldId, long newId) override { m_xOriginals[newId] = oldId; }
    MCObject* OriginalOf(const MCObject* copy) const {
        auto found = m_xOriginals.find(copy->GetId());
        return found == m_xOriginals.end() ? nullptr : MCObject::ResolveId(found->second);
    }

private:
    std::map<long, long> m_xOriginals;
};

// Every association end that is set is a class of the association's own package.
bool EndsInOwnPackage(MCObject* package) {
    const std::vector<MCObject*> classes = Ownees(package, C::tClass);
    for (MCObject* association : Ownees(package, C::tAssociation)) {
        for (short end : {C::pEndA, C::pEndB}) {
            MCObject* cls = Target(association, end);
            if (cls && !Holds(classes, cls))
                return false;
        }
    }
    return true;
}

// A pasted package is its original again: as many objects of each type as the original had when copied,
// each association joining the classes of the names its original joins, each superclass a class of the
// copy.
bool SameAsOriginal(MCObject* original, const CMCensus& copied, MCObject* copy) {
    if (ClassModel::Census(copy) != copied)
        return false;
    std::map<std::string, MCObject*> originals;
    for (MCObject* association : Ownees(original, C::tAssociation))
        originals[ClassModel::NameOf(association)] = association;
    for (MCObject* association : Ownees(copy, C::tAssociation)) {
        MCObject* source = originals[ClassModel::NameOf(association)];
        if (!source)
            return false;
        for (short end : {C::pEndA, C::pEndB}) {
            MCObject* mine = Target(association, end);
            MCObject* theirs = Target(source, end);
            if ((mine == nullptr) != (theirs == nullptr) ||
                ClassModel::NameOf(mine) != ClassModel::NameOf(theirs))
                return false;
        }
    }
    const std::vector<MCObject*> classes = Ownees(copy, C::tClass);
    for (MCObject* cls : classes) {
        for (MCObject* superclass : Superclasses(cls)) {
            if (!Holds(classes, superclass))
                return false;
        }
    }
    return true;
}

// Two classes of `package` that an association joins, that association, and another one that leaves the
// pair; empty when there is no pair. Names without a number and a superclass outside the pair show best
// what a paste does, so such a pair comes first.
std::vector<MCObject*> PickClasses(MCObject* package) {
    const std::vector<MCObject*> associations = Ownees(package, C::tAssociation);
    std::vector<MCObject*> picked;
    int best = -1;
    for (MCObject* joining : associations) {
        MCObject* a = Target(joining, C::pEndA);
        MCObject* b = Target(joining, C::pEndB);
        if (!a || !b || a == b)
            continue;
        const std::vector<MCObject*> pair = {a, b};
        std::vector<MCObject*> selection = {a, b, joining};
        for (MCObject* leaving : associations) {
            MCObject* c = Target(leaving, C::pEndA);
            MCObject* d = Target(leaving, C::pEndB);
            if (c && d && Holds(pair, c) != Holds(pair, d)) {
                selection.push_back(leaving);
                break;
            }
        }
        int score = 0;
        for (MCObject* cls : pair) {
            score += ClassModel::NameOf(cls).find('_') == std::string::npos ? 2 : 0;
            for (MCObject* superclass : Superclasses(cls))
                score += Holds(pair, superclass) ? 0 : 1;
        }
        if (score > best) {
            best = score;
            picked = selection;
        }
    }
    return picked;
}

// Copies two classes of `source` with the association between them and one that leaves them, and pastes
// them into `target`: the classes meet its names, the leaving association stays behind, and superclasses
// outside the pair are dropped. True when the paste checks out or there was no pair to copy.
bool CopyClasses(MCObject* model, MCObject* source, MCObject* target) {
    const std::vector<MCObject*> selection = PickClasses(source);
    if (selection.empty())
        return true;
    const std::vector<MCObject*> classes(selection.begin(), selection.begin() + 2);
    const size_t associations = selection.size() - classes.size();
    const std::vector<char> buffer = mc::Copy(selection, *model);
    PasteLog log;
    const std::vector<MCObject*> pasted = mc::Paste(buffer, *target, &log);

    // Each pasted object copies one of the selection; an association joins the copies of its original's
    // ends; a superclass is kept exactly when it was one of the pair, and then leads to its copy.
    bool checked = pasted.size() == classes.size() + 1;
    std::string renamed;
    size_t dropped = 0;
    for (MCObject* copy : pasted) {
        MCObject* original = log.OriginalOf(copy);
        if (!Holds(selection, original) || copy->GetType() != original->GetType()) {
            checked = false;
            continue;
        }
        if (copy->IsType(C::tAssociation, MCItem::rttiExact)) {
            for (short end : {C::pEndA, C::pEndB}) {
                MCObject* cls = Target(copy, end);
                checked =
                    checked && cls && Holds(pasted, cls) && log.OriginalOf(cls) == Target(original, end);
            }
            continue;
        }
        renamed +=
            (renamed.empty() ? "" : ", ") + ClassModel::NameOf(original) + " -> " + ClassModel::NameOf(copy);
        std::vector<MCObject*> kept;
        for (MCObject* superclass : Superclasses(original)) {
            if (Holds(classes, superclass))
                kept.push_back(superclass);
            else
                ++dropped;
        }
        const std::vector<MCObject*> superclasses = Superclasses(copy);
        checked = checked && superclasses.size() == kept.size();
        for (size_t i = 0; checked && i < kept.size(); ++i)
            checked = Holds(pasted, superclasses[i]) && log.OriginalOf(superclasses[i]) == kept[i];
    }
    std::printf("pasted 2 classes into %s: %s\n", ClassModel::NameOf(target).c_str(), renamed.c_str());
    std::printf(
        "associations: %zu selected, %zu left out (an end outside the copy); superclasses outside the "
        "copy dropped: %zu\n",
        associations, associations + classes.size() - pasted.size(), dropped);
    return checked;
}

// Copies the first package and pastes it twice into the last one and once into a new model, then copies
// two of its classes into the last package. 0 when every paste checks out, 1 when one does not, 2 when
// the clip buffer cannot be written to the --clip-out file.
int CopyAndPaste(MCObject* model, const Options& options) {
    const std::vector<MCObject*> packages = Ownees(model, C::tPackage);
    if (packages.empty())
        return 0;
    MCObject* source = packages.front();
    MCObject* target = packages.back();
    const std::string targetName = ClassModel::NameOf(target);

    // Pasting into the source's own subtree grows it: the copies are compared with it as it was.
    const CMCensus copied = ClassModel::Census(source);
    Clock::time_point start = Clock::now();
    // The clip buffer, which a host could put on the system clipboard as it is.
    const std::vector<char> buffer = mc::Copy({source}, *model);
    std::printf("copied %s, %ld objects, into a clip buffer of %zu bytes (%.1f ms)\n",
                ClassModel::NameOf(source).c_str(), Total(copied), buffer.size(), Milliseconds(start));
    if (!options.m_sClipOut.empty()) {
        std::ofstream clip(options.m_sClipOut, std::ios::binary | std::ios::trunc);
        if (!clip.write(buffer.data(), static_cast<std::streamsize>(buffer.size())).flush()) {
            std::fprintf(stderr, "class_diagram: cannot write %s\n", options.m_sClipOut.c_str());
            return 2;
        }
    }

    // Taken down also when a paste throws: no tree may outlive the session.
    const auto expunge = [](MCObject* root) { mc::ExpungeModel(root); };
    std::unique_ptr<MCObject, decltype(expunge)> second(ClassModel::NewModel("Second diagram"), expunge);
    const std::string again = targetName + " again";
    const struct {
        const char* m_pcWhere;
        MCObject* m_pxTarget;
    } pastes[] = {{targetName.c_str(), target}, {again.c_str(), target}, {"a new model", second.get()}};
    bool same = true, ownEnds = true;
    for (const auto& paste : pastes) {
        start = Clock::now();
        const std::vector<MCObject*> pasted = mc::Paste(buffer, *paste.m_pxTarget);
        const double pasteMs = Milliseconds(start);
        MCObject* copy = pasted.size() == 1 ? pasted.front() : nullptr;
        const bool alike = copy && SameAsOriginal(source, copied, copy);
        same = same && alike;
        ownEnds = ownEnds && copy && EndsInOwnPackage(copy);
        std::printf("pasted into %s: %s, %ld objects%s (%.1f ms)\n", paste.m_pcWhere,
                    copy ? ClassModel::NameOf(copy).c_str() : "nothing",
                    copy ? Total(ClassModel::Census(copy)) : 0L, alike ? "" : ", unlike the original",
                    pasteMs);
    }
    const bool secondNames = NamesKept(second.get());
    second.reset();

    const bool classes = CopyClasses(model, source, target);
    const bool names = secondNames && NamesKept(target);
    std::printf("associations in each copy join that copy's classes: %s\n", ownEnds ? "yes" : "no");
    std::printf("pasted names unique: %s\n", names ? "yes" : "no");
    const bool checked = same && ownEnds && classes && names && EndsInOwnPackage(target);
    std::printf("paste checked: %s\n", checked ? "yes" : "no");
    return checked ? 0 : 1;
}

// Saves `model` to `out`, restores the file into a fresh tree, compares the two and takes the copy down.
// exitEqual when they are equal and the name spaces found their names again; `written` is false when the
// file could not be written.
int RoundTrip(MCObject* model, const std::string& out, bool& written) {
    Clock::time_point start = Clock::now();
    ClassModel::Save(model, out.c_str(), written);
    const double saveMs = Milliseconds(start);
    if (!written) {
        std::fprintf(stderr, "class_diagram: cannot write %s\n", out.c_str());
        return exitCannotStore;
    }
    std::ifstream file(out, std::ios::binary | std::ios::ate);
    const long size = static_cast<long>(file.tellg());
    file.seekg(0);
    std::printf("saved %ld bytes to %s (%.1f ms)\n", size, out.c_str(), saveMs);

    // The stream stays here: its id space pairs each saved object with its restored counterpart.
    MCStream stream(*file.rdbuf(), ZVTStream::binary);
    start = Clock::now();
    mc::RestoreResult restored = mc::Restore(stream);
    const double restoreMs = Milliseconds(start);
    int status = exitCannotStore;
    if (!restored) {
        std::fprintf(stderr, "class_diagram: cannot read %s back (result %d)\n", out.c_str(),
                     static_cast<int>(restored.outcome));
    } else {
        const MCPersHeader& header = restored.header;
        std::printf("restored %ld objects (%.1f ms); file written by %s %s of %s, format %ld.%ld\n",
                    Total(ClassModel::Census(restored.root)), restoreMs, header.GetProductCode().data(),
                    header.GetProductVersion().data(), header.GetCompanyCode().data(),
                    header.GetFileMajorVersion(), header.GetFileMinorVersion());
        const std::string difference = ClassModel::CompareRestored(model, restored.root, stream.GetIdSpace());
        const bool names = NamesKept(restored.root);
        std::printf("name spaces rebuilt: %s\n", names ? "yes" : "no");
        std::printf("equal: %s\n", difference.empty() ? "yes" : ("no, " + difference).c_str());
        status = difference.empty() && names ? exitEqual : exitDiffers;
    }
    restored.ExpungeAll();
    return status;
}

int Run(const Options& options) {
    Lcg random;
    Tally tally;
    Clock::time_point start = Clock::now();
    MCObject* model = Build(options, random, tally);
    Edit(model, random, tally);
    const double buildMs = Milliseconds(start);
    const CMCensus census = ClassModel::Census(model);

    std::printf("class diagram: %ld packages, %ld classes, %ld attributes, %ld associations, %ld objects\n",
                CountOf(census, C::tPackage), CountOf(census, C::tClass), CountOf(census, C::tAttribute),
                CountOf(census, C::tAssociation), Total(census));
    std::printf(
        "edits: %ld renamed, %ld classes and %ld attributes removed; refused: %ld empty names, "
        "%ld self-generalizations (%.1f ms)\n",
        tally.m_nRenamed, tally.m_nClassesRemoved, tally.m_nAttributesRemoved, tally.m_nRefusedNames,
        tally.m_nRefusedGeneralizations, buildMs);

    bool written = false;
    int status = RoundTrip(model, options.m_sOut, written);
    if (!written) {
        mc::ExpungeModel(model);
        return status;
    }
    try {
        const int pasted = CopyAndPaste(model, options);
        status = status == 0 ? pasted : status;
    } catch (const EXBase& failure) {
        std::fprintf(stderr, "class_diagram: copy and paste failed: %s\n", failure.what());
        status = status == 0 ? 1 : status;
    }
    mc::ExpungeModel(model);
    return status;
}

// Writes the model's C++ headers into the --generate directory, made if need be.
int GenerateHeaders(MCObject* model, const Options& options) {
    const Clock::time_point start = Clock::now();
    std::error_code made;
    std::filesystem::create_directories(options.m_sGenerate, made);
    if (made) {
        std::fprintf(stderr, "class_diagram: cannot make %s: %s\n", options.m_sGenerate.c_str(),
                     made.message().c_str());
        return exitGenerateFailed;
    }
    std::vector<std::string> headers;
    std::string error;
    if (!CMCppGenerator::Generate(model, options.m_sTemplates, options.m_sGenerate, headers, error)) {
        std::fprintf(stderr, "class_diagram: %s\n", error.c_str());
        return exitGenerateFailed;
    }
    std::printf("generated %zu headers in %s (%.1f ms)\n", headers.size(), options.m_sGenerate.c_str(),
                Milliseconds(start));
    return exitEqual;
}

// Imports the Ecore file, prints what the model holds, then saves, restores and compares it, and
// generates its headers when asked.
int RunImport(const Options& options) {
    const Clock::time_point start = Clock::now();
    const EcoreImportResult imported = ImportEcore(options.m_sImport.c_str());
    const double importMs = Milliseconds(start);
    if (!imported.m_pxModel) {
        std::fprintf(stderr, "class_diagram: %s\n", imported.m_sError.c_str());
        return exitImportFailed;
    }
    MCObject* model = imported.m_pxModel;
    const CMCensus census = ClassModel::Census(model);
    long generalizations = 0;
    for (MCDepthFirstWalker walker(model, nullptr); walker.Traverse();) {
        if (walker.GetValue()->IsType(C::tClass, MCItem::rttiExact))
            generalizations += static_cast<long>(Superclasses(walker.GetValue()).size());
    }
    std::printf(
        "imported %s: %ld packages, %ld classes, %ld attributes, %ld associations, %ld data types, %ld "
        "enums, "
        "%ld generalizations, %ld objects (%.1f ms)\n",
        options.m_sImport.c_str(), CountOf(census, C::tPackage), CountOf(census, C::tClass),
        CountOf(census, C::tAttribute), CountOf(census, C::tAssociation), CountOf(census, C::tDataType),
        CountOf(census, C::tEnum), generalizations, Total(census), importMs);
    bool written = false;
    int status = RoundTrip(model, options.m_sOut, written);
    if (status == exitEqual && !options.m_sGenerate.empty())
        status = GenerateHeaders(model, options);
    mc::ExpungeModel(model);
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!ParseOptions(argc, argv, options)) {
        std::fprintf(
            stderr,
            "usage: class_diagram [--out FILE] [--packages 0-1000] [--classes 1-1000] [--clip-out FILE]\n"
            "       class_diagram --import FILE.ecore [--out FILE] [--generate DIR [--templates DIR]]\n");
        return exitBadArguments;
    }
    CMSession session;
    return options.m_sImport.empty() ? Run(options) : RunImport(options);
}
