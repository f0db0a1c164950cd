// Parses arbitrary bytes as a template and expands it with the class model's data butler over a small
// class diagram, as `mcinspect expand` does: the butler reads the macro names and their arguments from
// the bytes. Whatever the bytes, two expansions, each with a butler of its own, answer the same (or raise
// the same exception) and write the same text; reading the model through the butler leaves it as it was
// (the same canonical dump); and once the model is expunged no object is left alive.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "ModelCore/ZVFWMC/EXBase.h"
#include "examples/classmodel/ClassModelButler.h"
#include "fuzz/clip_model.h"
#include "fuzz/tree_dump.h"
#include "platform/ZVMTemplate.h"

namespace {

void Require(bool holds) {
    if (!holds)
        std::abort();
}

// Passes over all iterations of one expansion: nested iterations multiply their passes.
constexpr long c_nMaxPasses = 256;

// Once the expansion has used up its passes, every iteration runs out at its next step.
class BoundedButler : public CMDataButler {
public:
    explicit BoundedButler(MCObject* anchor) : CMDataButler(anchor) {}

    ZVTBoolean NextIteration(const ZVTString& name) override {
        if (m_nPasses < c_nMaxPasses) {
            ++m_nPasses;
            return CMDataButler::NextIteration(name);
        }
        // Through the butler's own steps, so that it takes the iteration off its stack.
        while (CMDataButler::NextIteration(name)) {
        }
        return false;
    }

private:
    long m_nPasses = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Lives as long as the process: the registries are not rebuilt for every input.
    static CMSession* session = new CMSession;
    (void)session;
    // Messages of macros that cannot read a property go to the recorder, not to the terminal.
    HUBScopedMessageHandler quiet;

    ZVMTemplate parsed;
    ZVMTemplateError error;
    if (!parsed.Parse(std::string(reinterpret_cast<const char*>(data), size), error))
        return 0;

    const ClipModel built = BuildClipModel();
    const std::string before = DumpTrees({built.model});
    std::string outputs[2];
    // The answer, or the exception's text: a macro on the context after the anchor was popped raises
    // EXUnexpected, which passes through the expansion as documented.
    std::string answers[2];
    for (int i = 0; i < 2; ++i) {
        BoundedButler butler(built.model);
        try {
            answers[i] = parsed.Expand(butler, outputs[i], error) ? "true" : "false";
        } catch (const EXBase& raised) {
            answers[i] = raised.what();
        }
    }
    Require(answers[0] == answers[1] && outputs[0] == outputs[1]);
    RequireSameDump(before, DumpTrees({built.model}));

    built.model->Expunge(true);
    Require(ClassModel::LiveObjects() == 0);
    return 0;
}
