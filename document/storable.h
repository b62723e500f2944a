// Persistent objects and snapshot undo. Every object that a patch keeps is a Storable
// that saves itself to and loads itself from an XML element; undo keeps the element saved
// before a change and loads it back, so there are no command objects and no inverses.
// Everything here runs on the GUI thread and takes no lock.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

class TiXmlElement;
class Storable;
class StorableDocument;

// The window side of a Storable. `source` is -1 when undo or redo changed the object and 0
// when they removed it; a window ignores a change it made itself.
class StorableGui {
public:
    virtual ~StorableGui() = default;
    virtual void StorableChanged(int source, Storable* storable);
    virtual void StorableRemoved(int source, Storable* storable);
};

class Storable {
public:
    explicit Storable(std::string elementName);
    // Leaves the owner's registry, so a deleted object can never be found by its id.
    virtual ~Storable();
    Storable(const Storable&) = delete;
    Storable& operator=(const Storable&) = delete;

    // Writes the object's attributes; `ID` is written by the caller.
    virtual void Save(TiXmlElement& element) = 0;
    // Applies an element to the object, which may exist already (undo reuses Load).
    // An element that cannot be applied leaves the object as it was.
    virtual void Load(const TiXmlElement& element) = 0;

    StorableDocument* owner = nullptr;
    int id = -1;
    std::string elementName;
    std::vector<StorableGui*> listeners;
};

// How the document makes and unmakes objects; the patch document implements it.
class Factory {
public:
    virtual ~Factory() = default;
    // Makes, registers and loads an object of kind `elementName`; null for an unknown kind.
    virtual Storable* Create(const std::string& elementName, const TiXmlElement& element) = 0;
    virtual void Delete(Storable* storable) = 0;
    virtual void Changed(Storable* storable) = 0;
};

// One saved state in the history.
struct UndoItem {
    // False: `element` holds the state before a change. True: the object did not exist
    // before this action (or, after undo, it was recreated by it).
    bool created = false;
    std::unique_ptr<TiXmlElement> element;  // named "undoitem"
    int id = -1;
    std::string elementName;
    int action = 0;

    UndoItem();
    ~UndoItem();
};

// Owns the registry of objects, the undo and redo lists and the bracket of an action.
// The objects themselves are owned by the factory, which deletes them.
class StorableDocument {
public:
    StorableDocument();
    virtual ~StorableDocument();
    StorableDocument(const StorableDocument&) = delete;
    StorableDocument& operator=(const StorableDocument&) = delete;

    // Opens a bracket. The outermost bracket starts a new action: it clears redo and takes a
    // fresh tag. A non-null `storable` is captured once per action, before it changes.
    void ActionStart(Storable* storable);
    // Closes a bracket. A non-null `storable` closing a bracket opened with null was made
    // inside it, and enters the history as created.
    void ActionEnd(Storable* storable);
    // Captures `storable` inside the running action (or as an action of its own).
    void Capture(Storable* storable);
    // Records that `storable` was just made, as one action.
    void RecordCreation(Storable* storable);
    // Undoes or redoes every item of the newest action.
    void Undo();
    void Redo();
    void ClearUndo();
    void ClearRedo();

    // Puts `storable` into the registry under its id; -1, or an id that another object
    // holds already, takes `nextId`. An object registered before leaves its old entry.
    void Register(Storable* storable);
    void Unregister(Storable* storable);
    // Clears both lists, then tells the listeners and deletes every object through the
    // factory, newest first.
    void DeleteAll();

    // Marks the start of a new object history after a load or creation outside an action.
    void ResetLastAction() { lastActionId = -1; }
    size_t UndoCount() const { return undoList.size(); }
    size_t RedoCount() const { return redoList.size(); }

    std::map<int, Storable*> objects;  // every live object, ascending id
    bool changed = false;
    Factory* factory = nullptr;
    int nextId = 0;
    int actionDepth = 0;
    int actionTag = 0;
    int actionCounter = 0;
    std::set<int> touched;
    std::vector<std::unique_ptr<UndoItem>> undoList, redoList;  // newest at the back
    std::vector<Storable*> actionStack;
    std::string lastActionName;
    int lastActionId = -1;

private:
    // Saves the current state of `storable` into a new "undoitem" element.
    static std::unique_ptr<TiXmlElement> Snapshot(Storable& storable);
    // Applies the newest action of `from` and moves its items to `to`.
    void Replay(std::vector<std::unique_ptr<UndoItem>>& from, std::vector<std::unique_ptr<UndoItem>>& to,
                bool logFailedRecreation);
};
