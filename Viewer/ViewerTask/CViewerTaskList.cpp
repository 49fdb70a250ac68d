#include <vellument/CViewerTaskList.h>

#include <cstdint>
#include <cstdio>

#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/LogMacros.h"

namespace {

const char kRootName[] = "ViewerTasks";
const char kTaskName[] = "Task";
const char kSucceeded[] = "Succeeded";

} // namespace

CViewerTaskList::CViewerTaskList() : m_document(nullptr), m_current_task(nullptr), m_task_number(0) {}

CViewerTaskList::~CViewerTaskList()
{
    delete m_document;
}

COXMLNode* CViewerTaskList::root()
{
    if (m_document == nullptr)
        m_document = COXMLDocument::createDocument();
    COXMLNode* top = m_document->getDocumentElement();
    if (top == nullptr)
        top = m_document->appendChild(m_document->createElement(kRootName), true);
    return top;
}

void CViewerTaskList::SetCategory(const char* category)
{
    root()->setAttribute("Category", category != nullptr ? category : "");
}

void CViewerTaskList::SetSubcategory(const char* subcategory)
{
    root()->setAttribute("Subcategory", subcategory != nullptr ? subcategory : "");
}

int CViewerTaskList::AddTask()
{
    COXMLNode* parent = root();
    COXMLNode* task = m_document->createElement(kTaskName);
    parent->appendChild(task, true);
    m_current_task = task;
    m_index.reset();
    ++m_task_number;
    char number[16];
    std::snprintf(number, sizeof number, "%d", m_task_number);
    task->setAttribute("TaskNum", number);
    return m_task_number;
}

void CViewerTaskList::SetTaskAttribute(const char* name, const char* value)
{
    if (m_current_task == nullptr || name == nullptr)
        return;
    m_current_task->setAttribute(name, value != nullptr ? value : "");
    m_index.reset();
}

const char* CViewerTaskList::GetTaskAttribute(const char* name) const
{
    if (m_current_task == nullptr || name == nullptr)
        return "";
    return m_current_task->getAttribute(name);
}

int CViewerTaskList::GetTaskNumber() const
{
    return m_task_number;
}

COXMLDocument* CViewerTaskList::GetDocument() const
{
    return m_document;
}

bool CViewerTaskList::LoadList(const char* path)
{
    int error_code = 0;
    char error_text[256] = {};
    COXMLDocument* loaded = COXMLDocument::load(path, &error_code, error_text, static_cast<int>(sizeof error_text));
    delete m_document;
    m_document = loaded;
    m_current_task = nullptr;
    m_task_number = 0;
    m_index.reset();
    return loaded != nullptr;
}

// Answers //Task[@TaskNum="n"] for every n at once: the first Task in document order whose TaskNum
// is that text. A hostile list of many tasks then costs one pass, not one per task.
void CViewerTaskList::build_index()
{
    m_index.reset(new std::unordered_map<std::string, COXMLNode*>());
    if (m_document == nullptr)
        return;
    // The tasks that //Task finds: not those in a namespace.
    std::shared_ptr<COXMLNodeList> tasks = m_document->selectNodes("//Task", true);
    const int count = tasks ? tasks->length() : 0;
    for (int i = 0; i < count; ++i) {
        COXMLNode* task = tasks->item(i);
        if (task == nullptr)
            continue;
        // A missing TaskNum reads as "", which no number formats to.
        m_index->emplace(task->getAttribute("TaskNum"), task);
    }
}

bool CViewerTaskList::SelectTask(int number)
{
    if (m_document == nullptr)
        return false;
    if (!m_index)
        build_index();
    char key[16];
    std::snprintf(key, sizeof key, "%d", number);
    auto hit = m_index->find(key);
    if (hit == m_index->end())
        return false;
    m_current_task = hit->second;
    m_task_number = number;
    return true;
}

int CViewerTaskList::SelectNextTask()
{
    if (m_task_number == INT32_MAX)
        return 0;
    const int next = m_task_number + 1;
    return SelectTask(next) ? next : 0;
}

bool CViewerTaskList::GetAllSucceeded() const
{
    if (m_document == nullptr)
        return true;
    char query[64];
    std::snprintf(query, sizeof query, "//Task[@ResultCode!=\"%s\"]", kSucceeded);
    COXMLNode* failed = m_document->selectSingleNode(query);
    if (failed == nullptr)
        return true;
    VLOG(3, "[ViewerTask] ResultCode = %s\n", failed->getAttribute("ResultCode"));
    return false;
}

void CViewerTaskList::SaveList(const char* path) const
{
    if (m_document == nullptr || path == nullptr)
        return;
    if (Ostrel::FileSystem::GetStatus(path) && !Ostrel::FileSystem::DeleteFileA(path))
        return;
    m_document->save(path);
}
