// Snapshot undo over a toy record kind, independent of the patch: brackets, capture once
// per action, the order in which items of one action are undone and redone, recreation.
#include <gtest/gtest.h>
#include <tinyxml.h>

#include <algorithm>
#include <memory>

#include "document/storable.h"
#include "document_support.h"

namespace {

using docsupport::LogRecorder;

class Counter : public Storable {
public:
    Counter() : Storable("COUNTER") {}
    void Save(TiXmlElement& element) override { element.SetAttribute("VALUE", value); }
    void Load(const TiXmlElement& element) override { element.Attribute("VALUE", &value); }
    int value = 0;
};

class Listener : public StorableGui {
public:
    void StorableChanged(int source, Storable*) override { changed.push_back(source); }
    void StorableRemoved(int source, Storable*) override { removed.push_back(source); }
    std::vector<int> changed, removed;
};

// Keeps the counters the way the patch document keeps its records, and writes down what
// it was asked to do.
class CounterFactory : public Factory {
public:
    CounterFactory() { doc.factory = this; }

    Storable* Create(const std::string& elementName, const TiXmlElement& element) override {
        if (elementName != "COUNTER" || refuseCreate) return nullptr;
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

    // A new counter, recorded as created inside the running action.
    Counter* Make(int value) {
        doc.ActionStart(nullptr);
        TiXmlElement element("COUNTER");
        element.SetAttribute("ID", -1);
        element.SetAttribute("VALUE", value);
        auto* counter = static_cast<Counter*>(Create("COUNTER", element));
        doc.ActionEnd(counter);
        return counter;
    }
    // Captured first, as the document deletes.
    void Remove(Counter* counter) {
        doc.Capture(counter);
        Delete(counter);
    }
    void Change(Counter* counter, int value) {
        doc.ActionStart(counter);
        counter->value = value;
        doc.ActionEnd(counter);
    }
    Counter* Find(int id) {
        auto found = doc.objects.find(id);
        return found == doc.objects.end() ? nullptr : static_cast<Counter*>(found->second);
    }

    StorableDocument doc;
    std::vector<std::unique_ptr<Counter>> live;  // after doc: freed first, leaving the registry
    std::vector<std::string> events;
    bool refuseCreate = false;
    int changedCalls = 0;
};

TEST(StorableUndo, EmptyListsLogAndChangeNothing) {
    CounterFactory f;
    LogRecorder log;
    f.doc.Undo();
    f.doc.Redo();
    EXPECT_TRUE(log.Has(0, "Nothing to undo!"));
    EXPECT_TRUE(log.Has(0, "Nothing to redo!"));
    EXPECT_FALSE(f.doc.changed);
    EXPECT_TRUE(f.events.empty());
}

TEST(StorableUndo, TwoChangesInOneActionMakeOneItem) {
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
}

// Ids start at 0 in a fresh document, so the events name them directly.
using Events = std::vector<std::string>;

TEST(StorableUndo, CreationsInOneActionUndoNewestFirstAndRedoWithSameIds) {
    CounterFactory f;
    f.doc.ActionStart(nullptr);
    f.Make(10);
    Counter* second = f.Make(20);
    f.doc.ActionEnd(nullptr);
    Listener listener;
    second->listeners.push_back(&listener);
    f.events.clear();

    f.doc.Undo();
    EXPECT_EQ(f.events, (Events{"delete 1", "delete 0"}));
    EXPECT_EQ(listener.removed, std::vector<int>{0});
    f.doc.Redo();
    EXPECT_EQ(f.events, (Events{"delete 1", "delete 0", "create 0", "create 1"}));
    EXPECT_EQ(f.Find(1)->value, 20);
}

TEST(StorableUndo, DeletionsComeBackNewestFirst) {
    CounterFactory f;
    Counter* wireA = f.Make(1);
    Counter* wireB = f.Make(2);
    Counter* block = f.Make(3);
    f.doc.ActionStart(nullptr);
    f.Remove(wireA);
    f.Remove(wireB);
    f.Remove(block);
    f.doc.ActionEnd(nullptr);
    f.events.clear();

    f.doc.Undo();
    EXPECT_EQ(f.events, (Events{"create 2", "create 1", "create 0"}));
    EXPECT_EQ(f.Find(2)->value, 3);
    f.events.clear();
    f.doc.Redo();
    EXPECT_EQ(f.events, (Events{"delete 0", "delete 1", "delete 2"}));
}

TEST(StorableUndo, NewActionAfterUndoClearsRedo) {
    CounterFactory f;
    Counter* c = f.Make(0);
    f.Change(c, 1);
    f.Change(c, 2);  // likely the same millisecond: the counter keeps the tags apart
    f.doc.Undo();
    EXPECT_EQ(c->value, 1);
    ASSERT_EQ(f.doc.RedoCount(), 1u);
    f.Change(c, 7);
    EXPECT_EQ(f.doc.RedoCount(), 0u);
}

TEST(StorableUndo, UnmatchedActionEndLogsAndKeepsState) {
    CounterFactory f;
    LogRecorder log;
    f.doc.ActionEnd(nullptr);
    EXPECT_TRUE(log.Has(1, "Action Start/End not matched! Aborting ActionEnd!"));
    EXPECT_EQ(f.doc.actionDepth, 0);
    EXPECT_EQ(f.doc.UndoCount(), 0u);
}

TEST(StorableUndo, FailedRecreationLogsOnceAndIsSilentOnRedo) {
    CounterFactory f;
    f.Remove(f.Make(1));

    f.refuseCreate = true;
    LogRecorder log;
    f.doc.Undo();
    EXPECT_TRUE(log.Has(1, "     --Undoing delete failed!"));
    EXPECT_EQ(f.Find(0), nullptr);
    ASSERT_EQ(f.doc.RedoCount(), 1u);
    EXPECT_FALSE(f.doc.redoList.back()->created);

    const size_t lines = log.Count();
    f.doc.Redo();
    EXPECT_EQ(log.Count(), lines);
    EXPECT_EQ(f.Find(0), nullptr);
}

TEST(StorableRegistry, IdsAreTakenFromNextIdAndNeverShared) {
    StorableDocument doc;
    Counter a, b, c;
    doc.Register(&a);
    EXPECT_EQ(a.id, 0);
    b.id = 41;
    doc.Register(&b);
    EXPECT_EQ(doc.nextId, 42);
    c.id = 41;  // a damaged file repeating an id
    doc.Register(&c);
    EXPECT_EQ(c.id, 42);
    EXPECT_EQ(doc.objects.at(41), &b);
    a.id = 9;  // registered again under a new id, as the global record is on each load
    doc.Register(&a);
    EXPECT_EQ(doc.objects.size(), 3u);
    EXPECT_EQ(doc.objects.at(9), &a);
    for (Counter* counter : {&a, &b, &c}) doc.Unregister(counter);
}

TEST(StorableRegistry, DeleteAllClearsHistoryAndTellsListeners) {
    CounterFactory f;
    Counter* first = f.Make(1);
    f.Make(2);
    Listener listener;
    first->listeners.push_back(&listener);
    f.events.clear();
    f.doc.DeleteAll();
    EXPECT_EQ(f.doc.UndoCount(), 0u);
    EXPECT_TRUE(f.doc.objects.empty());
    EXPECT_EQ(listener.removed, std::vector<int>{0});
    EXPECT_EQ(f.events, (Events{"delete 1", "delete 0"}));
}

}  // namespace
