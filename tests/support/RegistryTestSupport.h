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

/// The codes a query appends, in the order it appends them. The query must answer true.
template <typename Query>
std::vector<short> Codes(Query query) {
    ZVTOrderedVectorT<short> found;
    EXPECT_TRUE(query(found));
    std::vector<short> codes;
    for (size_t i = 0; i < found.Length(); ++i)
        codes.push_back(found[i]);
    return codes;
}

/// The same for queries whose order is the hash order, which nothing may rely on.
template <typename Query>
std::vector<short> SortedCodes(Query query) {
    std::vector<short> codes = Codes(query);
    std::sort(codes.begin(), codes.end());
    return codes;
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
