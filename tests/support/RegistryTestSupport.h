#ifndef REGISTRYTESTSUPPORT_H
#define REGISTRYTESTSUPPORT_H

// Shared pieces of the metamodel tests: a fixture with an empty registry, a factory that counts
// its lifetime, order-keeping and sorted views of query results, and a compact message log.

#include <algorithm>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ModelCore/ZVFWMC/MCFactory.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCMetaInfo.h"
#include "foundation/ZVTVector.h"
#include "platform/HUB.h"

/// A factory that builds nothing and reports a fixed item size; its counters outlive it.
class CountingFactory : public MCFactory {
public:
    struct Counters {
        int alive = 0;
        int destroyed = 0;
        std::set<CountingFactory*> live;
        void DeleteAll() {
            while (!live.empty())
                delete *live.begin();
        }
    };

    explicit CountingFactory(Counters& counters, unsigned int size = 16)
        : m_rCounters(counters), m_uSize(size) {
        ++counters.alive;
        counters.live.insert(this);
    }
    ~CountingFactory() override {
        --m_rCounters.alive;
        ++m_rCounters.destroyed;
        m_rCounters.live.erase(this);
    }
    MCItem* CreateItem(short, MCObject*, MCFactoryContext*) override { return nullptr; }
    unsigned int GetItemSize(short) override { return m_uSize; }

private:
    Counters& m_rCounters;
    unsigned int m_uSize;
};

/// Every test starts and ends with no registry at all.
class FreshRegistryTest : public ::testing::Test {
protected:
    void SetUp() override {
        MCFactoryRegistry::DeleteInstance();
        MCMetaInfo::DeleteInstance();
    }
    void TearDown() override {
        MCFactoryRegistry::DeleteInstance();
        MCMetaInfo::DeleteInstance();
    }

    /// Outlives TearDown, so the registry may still delete factories counted here.
    CountingFactory::Counters counters;
};

/// The codes a query appends as "a b c", in its order or sorted (for hash-ordered queries);
/// "refused" when the query answers false.
template <typename Query>
std::string CodeList(Query query, bool sort = false) {
    ZVTOrderedVectorT<short> found;
    if (!query(found))
        return "refused";
    std::vector<short> codes(found.Length());
    for (size_t i = 0; i < found.Length(); ++i)
        codes[i] = found[i];
    if (sort)
        std::sort(codes.begin(), codes.end());
    std::string out;
    for (short code : codes)
        out += (out.empty() ? "" : " ") + std::to_string(code);
    return out;
}

/// Captures the numbered messages of its scope as "601(0x10: 77) 606(0x30)".
class MessageLog {
public:
    std::string Text() const {
        std::string out;
        for (const HUBMessageRecord& record : m_xHandler.GetMessages()) {
            char head[48];
            std::snprintf(head, sizeof head, "%ld(0x%lx", record.m_lMessageId, record.m_lStyle);
            out += out.empty() ? "" : " ";
            out += head;
            const char* separator = ": ";
            for (const ZVTString& text : record.m_xTexts) {
                if (text.IsNullString())
                    continue;
                out += separator;
                out += static_cast<const char*>(text);
                separator = ", ";
            }
            out += ")";
        }
        return out;
    }

private:
    HUBScopedMessageHandler m_xHandler;
};

#endif
