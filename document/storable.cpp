// Storable registry and snapshot undo.
#include "document/storable.h"

#include <tinyxml.h>

#include <chrono>

#include "engine/log.h"

void StorableGui::StorableChanged(int, Storable*) {}
void StorableGui::StorableRemoved(int, Storable*) {}

Storable::Storable(std::string elementName) : elementName(std::move(elementName)) {}

Storable::~Storable() {
    if (owner) owner->Unregister(this);
}

UndoItem::UndoItem() = default;
UndoItem::~UndoItem() = default;

StorableDocument::StorableDocument() = default;

StorableDocument::~StorableDocument() {
    ClearRedo();
    ClearUndo();
    // Objects that outlive the registry must not reach back into it.
    for (auto& [id, storable] : objects) storable->owner = nullptr;
}

namespace {

// Millisecond clock: with the counter beside it, tags differ across sessions and within
// one tick. Truncation to int is fine; tags are only compared for equality.
int ClockMilliseconds() {
    using namespace std::chrono;
    return static_cast<int>(duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

// Listeners may detach themselves while being told, so they are told from a copy.
void TellChanged(Storable& storable, int source) {
    const std::vector<StorableGui*> listeners = storable.listeners;
    for (StorableGui* gui : listeners) gui->StorableChanged(source, &storable);
}

void TellRemoved(Storable& storable, int source) {
    const std::vector<StorableGui*> listeners = storable.listeners;
    for (StorableGui* gui : listeners) gui->StorableRemoved(source, &storable);
}

}  // namespace

std::unique_ptr<TiXmlElement> StorableDocument::Snapshot(Storable& storable) {
    auto element = std::make_unique<TiXmlElement>("undoitem");
    element->SetAttribute("ID", storable.id);
    storable.Save(*element);
    return element;
}

void StorableDocument::ActionStart(Storable* storable) {
    if (actionDepth == 0) {
        changed = true;
        ClearRedo();
        touched.clear();
        lastActionId = -1;
        actionTag = ClockMilliseconds() + actionCounter;
        ++actionCounter;
    }
    ++actionDepth;
    if (storable) {
        if (storable->id != lastActionId) {
            lastActionId = storable->id;
            lastActionName = storable->elementName;
        }
        if (touched.insert(storable->id).second) {
            auto item = std::make_unique<UndoItem>();
            item->created = false;
            item->element = Snapshot(*storable);
            item->id = storable->id;
            item->elementName = storable->elementName;
            item->action = actionTag;
            undoList.push_back(std::move(item));
        }
    }
    actionStack.push_back(storable);
}

void StorableDocument::ActionEnd(Storable* storable) {
    if (actionStack.empty()) {
        Log(1, "Action Start/End not matched! Aborting ActionEnd!");
        return;
    }
    if (storable && actionStack.back() == nullptr) {
        auto item = std::make_unique<UndoItem>();
        item->created = true;
        item->element = Snapshot(*storable);
        item->id = storable->id;
        item->elementName = storable->elementName;
        item->action = actionTag;
        undoList.push_back(std::move(item));
    }
    actionStack.pop_back();
    --actionDepth;
}

void StorableDocument::Capture(Storable* storable) {
    ActionStart(storable);
    actionStack.pop_back();
    --actionDepth;
}

void StorableDocument::RecordCreation(Storable* storable) {
    ActionStart(nullptr);
    ActionEnd(storable);
}

void StorableDocument::Undo() {
    if (undoList.empty()) {
        Log(0, "Nothing to undo!");
        return;
    }
    Replay(undoList, redoList, true);
}

void StorableDocument::Redo() {
    if (redoList.empty()) {
        Log(0, "Nothing to redo!");
        return;
    }
    Replay(redoList, undoList, false);
}

void StorableDocument::Replay(std::vector<std::unique_ptr<UndoItem>>& from, std::vector<std::unique_ptr<UndoItem>>& to,
                              bool logFailedRecreation) {
    changed = true;
    const int action = from.back()->action;
    while (!from.empty() && from.back()->action == action) {
        std::unique_ptr<UndoItem> item = std::move(from.back());
        from.pop_back();
        auto found = objects.find(item->id);
        if (found == objects.end()) {
            // Deleted in that action: bring it back under the same id.
            Storable* storable = factory ? factory->Create(item->elementName, *item->element) : nullptr;
            if (storable) {
                item->element = Snapshot(*storable);
            } else if (logFailedRecreation) {
                Log(1, "     --Undoing delete failed!");
            }
            item->created = storable != nullptr;
        } else if (!item->created) {
            Storable& storable = *found->second;
            std::unique_ptr<TiXmlElement> current = Snapshot(storable);
            storable.Load(*item->element);
            TellChanged(storable, -1);
            if (factory) factory->Changed(&storable);
            item->element = std::move(current);
        } else {
            // Made by that action: it goes again, keeping its state for the way back.
            Storable& storable = *found->second;
            item->element = Snapshot(storable);
            TellRemoved(storable, 0);
            if (factory) factory->Delete(&storable);
        }
        to.push_back(std::move(item));
    }
}

void StorableDocument::ClearUndo() { undoList.clear(); }

void StorableDocument::ClearRedo() { redoList.clear(); }

void StorableDocument::Register(Storable* storable) {
    if (storable->owner == this) {
        // Its id may have been rewritten since, so the old entry is found by pointer.
        for (auto it = objects.begin(); it != objects.end(); ++it) {
            if (it->second == storable) {
                objects.erase(it);
                break;
            }
        }
    }
    int id = storable->id;
    // A damaged file may repeat an id; the second object must not hide the first, or the
    // first could never be deleted through the registry. Ids past a billion are renumbered
    // too, so that the next free id never overflows.
    constexpr int kMaxId = 1 << 30;
    if (id < 0 || id > kMaxId || objects.count(id)) id = nextId;
    storable->id = id;
    storable->owner = this;
    objects[id] = storable;
    if (nextId <= id) nextId = id + 1;
}

void StorableDocument::Unregister(Storable* storable) {
    auto found = objects.find(storable->id);
    if (found != objects.end() && found->second == storable) objects.erase(found);
    storable->owner = nullptr;
}

void StorableDocument::DeleteAll() {
    ClearRedo();
    ClearUndo();
    std::vector<Storable*> doomed;
    for (auto& [id, storable] : objects) doomed.push_back(storable);
    // Newest first: wires go before the blocks they name.
    for (auto it = doomed.rbegin(); it != doomed.rend(); ++it) {
        Storable* storable = *it;
        TellRemoved(*storable, 0);
        Unregister(storable);
        if (factory) factory->Delete(storable);
    }
}
