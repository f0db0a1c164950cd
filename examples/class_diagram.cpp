// The sample host: builds a class diagram of a few thousand objects, edits it under the class model's
// rules, saves it, restores it into a fresh tree and checks that the two are equal.
//
//   class_diagram [--out FILE] [--packages N] [--classes N]
//
// Exits 0 when the restored model equals the saved one, 1 when it does not, 2 when the model cannot
// be saved or read back, 3 for bad arguments.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "ModelCore/ZVFWMC/MCNameSpace.h"
#include "examples/classmodel/ClassModel.h"

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
    for (MCObject* child = owner->GetFirstOwnee(); child; child = child->GetNextSibling()) {
        if (child->IsType(type, MCItem::rttiExact))
            found.push_back(child);
    }
    return found;
}

MCObject* Build(const Options& options, Lcg& random, Tally& tally) {
    MCObject* model = ClassModel::NewModel("Sample diagram");
    // A property the user made up; the model's global section carries it to the next session.
    const short stereotype = MCFactoryRegistry::RegisterUDP("Stereotype", 91, model, true);
    MCFactoryRegistry::AddPropertyUsage(C::tClass, stereotype, MCFactoryRegistry::clipUndecided);
    for (int p = 0; p < options.m_nPackages; ++p) {
        MCObject* package = ClassModel::AddPackage(model, ("package" + std::to_string(p)).c_str());
        std::vector<MCObject*> classes;
        for (int c = 0; c < options.m_nClasses; ++c) {
            // Few words for many classes: the package's name space numbers the repeats.
            MCObject* cls = ClassModel::AddClass(package, c_apcWords[random.Next(c_nWords)]);
            MCSPropertyAccessorT<long> visibility(static_cast<long>(random.Next(3)));
            cls->SetProperty(C::pVisibility, visibility, MCPropertyAccessor::accessAdd);
            if (stereotype != 0 && random.Next(4) == 0) {
                MCSPropertyAccessorT<ZVTString> kind{ZVTString(random.Next(2) ? "entity" : "value")};
                cls->SetProperty(stereotype, kind, MCPropertyAccessor::accessAdd);
            }
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

// Every class of every restored package is found in its package's name space under its name.
bool NamesRebuilt(MCObject* restored) {
    for (MCObject* package : Ownees(restored, C::tPackage)) {
        MCNameSpace* names = ClassModel::ClassNames(package);
        if (!names)
            return false;
        for (MCObject* cls : Ownees(package, C::tClass)) {
            ZVTString name(ClassModel::NameOf(cls));
            if (names->FindObject(name) != cls)
                return false;
        }
    }
    return true;
}

bool ParseOptions(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const bool hasValue = i + 1 < argc;
        if (std::strcmp(argv[i], "--out") == 0 && hasValue) {
            options.m_sOut = argv[++i];
        } else if (std::strcmp(argv[i], "--packages") == 0 && hasValue) {
            options.m_nPackages = std::atoi(argv[++i]);
        } else if (std::strcmp(argv[i], "--classes") == 0 && hasValue) {
            options.m_nClasses = std::atoi(argv[++i]);
        } else {
            return false;
        }
    }
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

    start = Clock::now();
    bool written = false;
    ClassModel::Save(model, options.m_sOut.c_str(), written);
    const double saveMs = Milliseconds(start);
    if (!written) {
        std::fprintf(stderr, "class_diagram: cannot write %s\n", options.m_sOut.c_str());
        model->Expunge(true);
        return 2;
    }
    std::ifstream file(options.m_sOut, std::ios::binary | std::ios::ate);
    const long size = static_cast<long>(file.tellg());
    file.seekg(0);
    std::printf("saved %ld bytes to %s (%.1f ms)\n", size, options.m_sOut.c_str(), saveMs);

    int status = 0;
    {
        MCStream stream(*file.rdbuf(), ZVTStream::binary);
        MCPersController controller;
        MCPersHeader header;
        MCObject* restored = nullptr;
        CMCreationLog created;
        start = Clock::now();
        MCPersController::result result = MCPersController::resultOk;
        try {
            result = controller.RestoreFrom(stream, restored, header);
        } catch (const MCPersExObjectCreation&) {
            result = MCPersController::resultUnknownToken;
        } catch (const MCPersExBadTree&) {
            result = MCPersController::resultUnknownToken;
        } catch (const EXBase&) {
            result = MCPersController::resultUnknownToken;
        }
        const double restoreMs = Milliseconds(start);
        if (result != MCPersController::resultOk || !restored) {
            std::fprintf(stderr, "class_diagram: cannot read %s back (result %d)\n", options.m_sOut.c_str(),
                         static_cast<int>(result));
            status = 2;
        } else {
            std::printf("restored %ld objects (%.1f ms); file written by %s %s of %s, format %ld.%ld\n",
                        Total(ClassModel::Census(restored)), restoreMs, header.GetProductCode().data(),
                        header.GetProductVersion().data(), header.GetCompanyCode().data(),
                        header.GetFileMajorVersion(), header.GetFileMinorVersion());
            const std::string difference = ClassModel::CompareRestored(model, restored, stream.GetIdSpace());
            const bool names = NamesRebuilt(restored);
            std::printf("name spaces rebuilt: %s\n", names ? "yes" : "no");
            std::printf("equal: %s\n", difference.empty() ? "yes" : ("no, " + difference).c_str());
            status = difference.empty() && names ? 0 : 1;
        }
        created.ExpungeStrays(nullptr);
    }
    model->Expunge(true);
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!ParseOptions(argc, argv, options)) {
        std::fprintf(stderr, "usage: class_diagram [--out FILE] [--packages 0-1000] [--classes 1-1000]\n");
        return 3;
    }
    CMSession session;
    return Run(options);
}
