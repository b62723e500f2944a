// Snapshot undo over a toy record kind, independent of the patch: brackets, capture once
// per action, the order in which items of one action are undone and redone, the registry.
#include <gtest/gtest.h>
#include <tinyxml.h>

#include <algorithm>
#include <memory>

#include "document/storable.h"
#include "document_support.h"

namespace {

using docsupport::LogRecorder;
using Events = std::vector<std::string>;

class Counter : public Storable {
public:
    Counter() : Storable("COUNTER") {}
    void Save(TiXmlElement& e) override { e.SetAttribute("VALUE", value); }
    void Load(const TiXmlElement& e) override { e.Attribute("VALUE", &value); }
    int value = 0;
};

struct Listener : StorableGui {
    void StorableChanged(int source, Storable*) override { changed.push_back(source); }
    void StorableRemoved(int source, Storable*) override { removed.push_back(source); }
    std::vector<int> changed, removed;
};

// Keeps counters the way the patch document keeps its records and writes down what it was
// asked to do. Ids start at 0 in a fresh document, so the events name them directly.
class CounterFactory : public Factory {
public:
    CounterFactory() { doc.factory = this; }

    Storable* Create(const std::string& elementName, const TiXmlElement& element) override {
        if (elementName != "COUNTER") return nullptr;
        auto counter = std::make_unique<Counter>();
        element.Attribute("ID", &counter->id);
        doc.Register(counter.get());
        counter->Load(element);
        events.push_back("create " + std::to_string(counter->id));
        live.push_back(std::move(counter));
        return live.back().get();
    }
    void Delete(Storable* storable) override {
        events.push_back("delete " + std::to_string(storable->id));
        std::erase_if(live, [&](const auto& c) { return c.get() == storable; });
    }
    void Changed(Storable*) override { ++changedCalls; }

    // A new counter, recorded as created inside its own action.
    Counter* Make(int value) {
        doc.ActionStart(nullptr);
        TiXmlElement element("COUNTER");
        element.SetAttribute("ID", -1);
        element.SetAttribute("VALUE", value);
        auto* counter = static_cast<Counter*>(Create("COUNTER", element));
        doc.ActionEnd(counter);
        return counter;
    }
    void Remove(Counter* counter) {  // captured first, as the document deletes
        doc.Capture(counter);
        Delete(counter);
    }
    void Change(Counter* counter, int value) {
        doc.ActionStart(counter);
        counter->value = value;
        doc.ActionEnd(counter);
    }
    Counter* Find(int id) { return doc.objects.count(id) ? static_cast<Counter*>(doc.objects.at(id)) : nullptr; }

    StorableDocument doc;
    std::vector<std::unique_ptr<Counter>> live;  // after doc: freed first, leaving the registry
    Events events;
    int changedCalls = 0;
};

TEST(StorableUndo, EmptyHistoryAndUnmatchedEndLogAndChangeNothing) {
    CounterFactory f;
    LogRecorder log;
    f.doc.Undo();
    f.doc.Redo();
    f.doc.ActionEnd(nullptr);
    EXPECT_TRUE(log.Has(0, "Nothing to undo!"));
    EXPECT_TRUE(log.Has(0, "Nothing to redo!"));
    EXPECT_TRUE(log.Has(1, "Action Start/End not matched! Aborting ActionEnd!"));
    EXPECT_EQ(f.doc.actionDepth, 0);
    EXPECT_EQ(f.doc.UndoCount(), 0u);
    EXPECT_FALSE(f.doc.changed);
    EXPECT_TRUE(f.events.empty());
}

TEST(StorableUndo, TwoChangesInOneActionMakeOneItemAndANewActionClearsRedo) {
    CounterFactory f;
    Counter* c = f.Make(1);
    Listener listener;
    c->listeners.push_back(&listener);
    f.doc.ActionStart(nullptr);  // a knob drag: one bracket around many changes
    f.Change(c, 2);
    f.Change(c, 3);
    f.doc.ActionEnd(nullptr);
    EXPECT_EQ(f.doc.UndoCount(), 2u);
    f.doc.Undo();
    EXPECT_EQ(c->value, 1);
    EXPECT_EQ(listener.changed, std::vector<int>{-1});
    EXPECT_EQ(f.changedCalls, 1);
    f.doc.Redo();
    EXPECT_EQ(c->value, 3);

    f.Change(c, 4);
    f.Change(c, 5);  // likely the same millisecond: the tags must still differ
    f.doc.Undo();
    EXPECT_EQ(c->value, 4);
    ASSERT_EQ(f.doc.RedoCount(), 1u);
    f.Change(c, 7);
    EXPECT_EQ(f.doc.RedoCount(), 0u);
}

// Within one action the newest item is undone first: created wires go before their block,
// and deleted blocks (captured after their wires) come back before them. Redo keeps the ids.
TEST(StorableUndo, ItemsOfOneActionUndoNewestFirstAndRedoWithSameIds) {
    CounterFactory f;
    f.doc.ActionStart(nullptr);
    f.Make(10);
    Counter* wire = f.Make(20);
    f.doc.ActionEnd(nullptr);
    Listener listener;
    wire->listeners.push_back(&listener);
    f.events.clear();
    f.doc.Undo();
    EXPECT_EQ(listener.removed, std::vector<int>{0});
    f.doc.Redo();
    EXPECT_EQ(f.events, (Events{"delete 1", "delete 0", "create 0", "create 1"}));
    EXPECT_EQ(f.Find(1)->value, 20);

    Counter* wireB = f.Make(30);
    f.doc.ActionStart(nullptr);
    for (Counter* c : {f.Find(1), wireB, f.Find(0)}) f.Remove(c);
    f.doc.ActionEnd(nullptr);
    f.events.clear();
    f.doc.Undo();
    EXPECT_EQ(f.events, (Events{"create 0", "create 2", "create 1"}));
    EXPECT_EQ(f.Find(0)->value, 10);
    f.events.clear();
    f.doc.Redo();
    EXPECT_EQ(f.events, (Events{"delete 1", "delete 2", "delete 0"}));
}

TEST(StorableRegistry, IdsAreTakenFromNextIdAndNeverShared) {
    StorableDocument doc;
    Counter a, b, c;
    b.id = 41;
    c.id = 41;  // a damaged file repeating an id
    for (Counter* counter : {&a, &b, &c}) doc.Register(counter);
    EXPECT_EQ(a.id, 0);
    EXPECT_EQ(c.id, 42);
    EXPECT_EQ(doc.objects.at(41), &b);
    a.id = 9;  // registered again under a new id, as the global record is on each load
    doc.Register(&a);
    EXPECT_EQ(doc.objects.size(), 3u);
    EXPECT_EQ(doc.objects.at(9), &a);
    for (Counter* counter : {&a, &b, &c}) doc.Unregister(counter);
}

}  // namespace
