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
    // Deletes inside the running action, captured first as the document does.
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
    f.doc.ActionStart(nullptr);  // a knob drag: one bracket around many changes
    f.Change(c, 2);
    f.Change(c, 3);
    f.doc.ActionEnd(nullptr);
    EXPECT_EQ(f.doc.UndoCount(), 2u);

    f.doc.Undo();
    EXPECT_EQ(c->value, 1);
    f.doc.Redo();
    EXPECT_EQ(c->value, 3);
}

TEST(StorableUndo, ChangeUndoTellsListenersAndFactory) {
    CounterFactory f;
    Counter* c = f.Make(1);
    Listener listener;
    c->listeners.push_back(&listener);
    f.Change(c, 5);
    f.doc.Undo();
    EXPECT_EQ(listener.changed, std::vector<int>{-1});
    EXPECT_EQ(f.changedCalls, 1);
}

TEST(StorableUndo, SeparateActionsUndoSeparately) {
    CounterFactory f;
    Counter* c = f.Make(0);
    f.Change(c, 1);
    f.Change(c, 2);  // within the same millisecond: the counter keeps the tags apart
    f.doc.Undo();
    EXPECT_EQ(c->value, 1);
}

TEST(StorableUndo, CreationsInOneActionUndoNewestFirstAndRedoWithSameIds) {
    CounterFactory f;
    f.doc.ActionStart(nullptr);
    const int first = f.Make(10)->id;
    const int second = f.Make(20)->id;
    f.doc.ActionEnd(nullptr);
    f.events.clear();

    f.doc.Undo();
    EXPECT_EQ(f.events, (std::vector<std::string>{"delete " + std::to_string(second), "delete " + std::to_string(first)}));
    EXPECT_TRUE(f.doc.objects.empty());

    f.events.clear();
    f.doc.Redo();
    EXPECT_EQ(f.events, (std::vector<std::string>{"create " + std::to_string(first), "create " + std::to_string(second)}));
    ASSERT_NE(f.Find(second), nullptr);
    EXPECT_EQ(f.Find(second)->value, 20);
}

TEST(StorableUndo, DeletionsComeBackNewestFirst) {
    CounterFactory f;
    Counter* wireA = f.Make(1);
    Counter* wireB = f.Make(2);
    Counter* block = f.Make(3);
    const int a = wireA->id, b = wireB->id, k = block->id;
    f.doc.ActionStart(nullptr);
    f.Remove(wireA);
    f.Remove(wireB);
    f.Remove(block);
    f.doc.ActionEnd(nullptr);
    f.events.clear();

    f.doc.Undo();
    EXPECT_EQ(f.events, (std::vector<std::string>{"create " + std::to_string(k), "create " + std::to_string(b),
                                                  "create " + std::to_string(a)}));
    EXPECT_EQ(f.Find(k)->value, 3);

    f.events.clear();
    f.doc.Redo();
    EXPECT_EQ(f.events, (std::vector<std::string>{"delete " + std::to_string(a), "delete " + std::to_string(b),
                                                  "delete " + std::to_string(k)}));
}

TEST(StorableUndo, UndoOfCreationTellsListenersOfRemoval) {
    CounterFactory f;
    Counter* c = f.Make(1);
    Listener listener;
    c->listeners.push_back(&listener);
    f.doc.Undo();
    EXPECT_EQ(listener.removed, std::vector<int>{0});
}

TEST(StorableUndo, NewActionAfterUndoClearsRedo) {
    CounterFactory f;
    Counter* c = f.Make(0);
    f.Change(c, 1);
    f.doc.Undo();
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
    // The document still works after the stray end.
    Counter* c = f.Make(4);
    f.Change(c, 5);
    f.doc.Undo();
    EXPECT_EQ(c->value, 4);
}

TEST(StorableUndo, FailedRecreationLogsOnceAndIsSilentOnRedo) {
    CounterFactory f;
    Counter* c = f.Make(1);
    const int id = c->id;
    f.doc.ActionStart(nullptr);
    f.Remove(c);
    f.doc.ActionEnd(nullptr);

    f.refuseCreate = true;
    LogRecorder log;
    f.doc.Undo();
    EXPECT_TRUE(log.Has(1, "     --Undoing delete failed!"));
    EXPECT_EQ(f.Find(id), nullptr);
    ASSERT_EQ(f.doc.RedoCount(), 1u);
    EXPECT_FALSE(f.doc.redoList.back()->created);

    const size_t lines = log.Count();
    f.doc.Redo();
    EXPECT_EQ(log.Count(), lines);
    EXPECT_EQ(f.Find(id), nullptr);
}

TEST(StorableRegistry, IdsAreTakenFromNextIdAndNeverShared) {
    CounterFactory f;
    Counter a, b, c;
    f.doc.Register(&a);
    EXPECT_EQ(a.id, 0);
    b.id = 41;
    f.doc.Register(&b);
    EXPECT_EQ(f.doc.nextId, 42);
    c.id = 41;  // a damaged file repeating an id
    f.doc.Register(&c);
    EXPECT_EQ(c.id, 42);
    EXPECT_EQ(f.doc.objects.at(41), &b);
    f.doc.Unregister(&a);
    f.doc.Unregister(&b);
    f.doc.Unregister(&c);
}

TEST(StorableRegistry, RegisteringAgainMovesTheEntry) {
    CounterFactory f;
    Counter a;
    a.id = 3;
    f.doc.Register(&a);
    a.id = 9;
    f.doc.Register(&a);
    EXPECT_EQ(f.doc.objects.size(), 1u);
    EXPECT_EQ(f.doc.objects.at(9), &a);
    f.doc.Unregister(&a);
}

TEST(StorableRegistry, DeleteAllClearsHistoryAndTellsListeners) {
    CounterFactory f;
    Counter* first = f.Make(1);
    Counter* second = f.Make(2);
    Listener listener;
    first->listeners.push_back(&listener);
    const int a = first->id, b = second->id;
    f.events.clear();
    f.doc.DeleteAll();
    EXPECT_EQ(f.doc.UndoCount(), 0u);
    EXPECT_TRUE(f.doc.objects.empty());
    EXPECT_EQ(listener.removed, std::vector<int>{0});
    EXPECT_EQ(f.events, (std::vector<std::string>{"delete " + std::to_string(b), "delete " + std::to_string(a)}));
}

}  // namespace
