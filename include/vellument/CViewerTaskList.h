#ifndef VELLUMENT_CVIEWERTASKLIST_H
#define VELLUMENT_CVIEWERTASKLIST_H

#include <memory>
#include <string>
#include <unordered_map>

#include <vellument/export.h>

class COXMLDocument;
class COXMLNode;

// The viewer task list: a small XML document with a ViewerTasks root and one Task element per form,
// which the Viewer works through and fills with its results. An object is used either to build a
// list and save it, or to load a list after the Viewer's run and read it; never both.
//
// Attribute operations act on the current task: the one AddTask made last, or the one SelectTask
// found. Without a current task they do nothing (GetTaskAttribute gives "").
class VELLUMENT_API CViewerTaskList {
public:
    CViewerTaskList();
    virtual ~CViewerTaskList();

    CViewerTaskList(const CViewerTaskList&) = delete;
    CViewerTaskList& operator=(const CViewerTaskList&) = delete;

    // Root attributes; the document and its root are made when missing.
    void SetCategory(const char* category);
    void SetSubcategory(const char* subcategory);

    // Appends a Task, makes it current and numbers it with the next number (from 1); returns it.
    int AddTask();
    void SetTaskAttribute(const char* name, const char* value);
    // The attribute's text, "" when it or the current task is missing; never null. Valid until the
    // next call on this list.
    const char* GetTaskAttribute(const char* name) const;
    // The number of tasks added so far, or the TaskNum of the task selected last.
    int GetTaskNumber() const;

    // Loads a list file, replacing what the object held. False, silently, when the file is missing
    // or no well-formed XML; the list is then empty.
    bool LoadList(const char* path);
    // Makes the first Task whose TaskNum is exactly number (as "%d") current. False on a miss, the
    // current task then stays as it was.
    bool SelectTask(int number);
    // Selects the task after the current number; its number, or 0 when there is none.
    int SelectNextTask();
    // False when some Task carries a ResultCode other than "Succeeded" (the first one is logged); a
    // Task without a ResultCode is no failure.
    bool GetAllSucceeded() const;
    // Writes the list to path after deleting a file that is there. When that file can't be deleted
    // nothing is written and nothing is reported.
    void SaveList(const char* path) const;

    // The document, or null when nothing was built or loaded; lent.
    COXMLDocument* GetDocument() const;

private:
    COXMLNode* root();
    void build_index();

    COXMLDocument* m_document;
    COXMLNode* m_current_task;
    int m_task_number;
    // TaskNum text to the first Task carrying it, in document order; built on the first select so
    // that walking a long list costs one pass over the document, not one per task.
    std::unique_ptr<std::unordered_map<std::string, COXMLNode*>> m_index;
};

#endif
