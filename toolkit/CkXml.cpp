#include <vellument/CkXml.h>

#include <cstring>
#include <memory>
#include <new>
#include <string>

#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Format.h>

#include "toolkit/CkXml_Convert.h"
#include "toolkit/CkXml_Tree.h"

using ckxml::TreeInfo;
using ckxml::TreeNode;
using ckxml::Trail;

namespace {

const int kResultBuffers = 10;

// Larger files are refused rather than read: the tree costs several times the file's size.
const std::size_t kMaxFileSize = std::size_t(1) << 30;

// A text this short without "<" that ends in ".xml" is taken for a file path.
const std::size_t kPathRuleLength = 100;

std::string fromAnsi(const char* text)
{
    if (text == nullptr)
        return std::string();
    const std::size_t length = std::strlen(text);
    // ASCII is the same in both: one copy instead of a conversion byte by byte.
    if (Ostrel::Format::IsAscii(text, length))
        return std::string(text, length);
    return Ostrel::Format::AnsiToUtf8(text, length);
}

// Text on its way out; ASCII needs no conversion, which spares large results a second pass.
std::string toAnsi(std::string text)
{
    if (Ostrel::Format::IsAscii(text.data(), text.size()))
        return text;
    return Ostrel::Format::Utf8ToAnsi(text);
}

bool endsWithXml(const char* text, std::size_t length)
{
    if (length < 4)
        return false;
    return Ostrel::Format::EqualsNoCaseAscii(std::string(text + length - 4, 4), ".xml");
}

std::string trimWhite(std::string text)
{
    auto white = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    std::size_t b = 0;
    std::size_t e = text.size();
    while (b < e && white(text[b]))
        ++b;
    while (e > b && white(text[e - 1]))
        --e;
    text.erase(e);
    text.erase(0, b);
    return text;
}

// New content still has to read as text with references: the three specials become entities.
std::string escapeContent(const std::string& text)
{
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        default: out.push_back(c); break;
        }
    }
    return out;
}

} // namespace

struct CkXml::Impl {
    std::mutex lock;
    std::shared_ptr<TreeInfo> tree;
    TreeNode* node = nullptr;
    bool emitDeclaration = true;
    int registers[3] = {0, 0, 0};
    std::string results[kResultBuffers];
    int nextResult = 0;
    std::string lastError;
    // The trail of the calls made once per attribute or element while a tree is built, kept so
    // that its text reuses its memory.
    Trail scratchTrail;

    const char* result(std::string text)
    {
        std::string& slot = results[nextResult];
        nextResult = (nextResult + 1) % kResultBuffers;
        slot = std::move(text);
        return slot.c_str();
    }

    // Refuses a cursor without a valid node, and puts a fresh tree in its place.
    bool check(Trail& trail)
    {
        const char* problem = nullptr;
        if (!tree)
            problem = "m_tree is null.";
        else if (node == nullptr || node->mark != ckxml::kValidMark || node->tree != tree.get())
            problem = "m_tree is invalid.";
        if (problem == nullptr)
            return true;
        trail.message(problem);
        tree = ckxml::makeTree("rroot");
        node = tree->root;
        return false;
    }

    // The new tree takes over the old one's flags.
    void install(std::shared_ptr<TreeInfo> fresh)
    {
        if (tree) {
            std::lock_guard<std::mutex> guard(tree->lock);
            fresh->compact = tree->compact;
        }
        tree = std::move(fresh);
        node = tree->root;
    }

    bool finish(Trail& trail, bool success)
    {
        trail.end(success);
        lastError = trail.text();
        return success;
    }

    bool loadUtf8(const char* text, std::size_t size, Trail& trail)
    {
        try {
            install(ckxml::parse(text, size));
        } catch (const std::bad_alloc&) {
            trail.message("Out of memory.");
            return finish(trail, false);
        }
        return finish(trail, true);
    }

    bool loadFile(const char* path, Trail& trail)
    {
        trail.add("path", path ? path : "");
        if (path == nullptr || *path == '\0') {
            trail.message("No file name given.");
            return finish(trail, false);
        }
        try {
            std::string bytes;
            if (!Ostrel::FileSystem::ReadFile(path, bytes, kMaxFileSize)) {
                trail.message("Failed to read file.");
                return finish(trail, false);
            }
            trail.add("fileSize", std::to_string(bytes.size()));
            std::string text = convertXmlToUtf8(bytes.data(), bytes.size());
            std::string().swap(bytes);
            return loadUtf8(text.data(), text.size(), trail);
        } catch (const std::bad_alloc&) {
            trail.message("Out of memory.");
            return finish(trail, false);
        }
    }

    CkXml* cursorOn(TreeNode* n)
    {
        std::unique_ptr<Impl> impl(new Impl);
        impl->tree = tree;
        impl->node = n;
        impl->emitDeclaration = emitDeclaration;
        CkXml* cursor = new CkXml(impl.get());
        impl.release();
        return cursor;
    }
};

CkXml::CkXml() : m_impl(new Impl)
{
    m_impl->tree = ckxml::makeTree("unnamed");
    m_impl->node = m_impl->tree->root;
}

CkXml::CkXml(Impl* impl) : m_impl(impl) {}

CkXml::~CkXml()
{
    delete m_impl;
}

bool CkXml::LoadXml(const char* xml)
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    Trail trail;
    trail.begin("LoadXml");
    const std::size_t length = xml ? std::strlen(xml) : 0;
    if (length == 0) {
        trail.message("The XML text is empty.");
        return m_impl->finish(trail, false);
    }
    if (length < kPathRuleLength && std::memchr(xml, '<', length) == nullptr && endsWithXml(xml, length)) {
        trail.message("Loading the text as a file path.");
        return m_impl->loadFile(xml, trail);
    }
    trail.add("length", std::to_string(length));
    try {
        // ASCII is the same in both encodings, and replies mostly are ASCII.
        if (Ostrel::Format::IsAscii(xml, length))
            return m_impl->loadUtf8(xml, length, trail);
        const std::string text = Ostrel::Format::AnsiToUtf8(xml, length);
        return m_impl->loadUtf8(text.data(), text.size(), trail);
    } catch (const std::bad_alloc&) {
        trail.message("Out of memory.");
        return m_impl->finish(trail, false);
    }
}

bool CkXml::LoadXmlFile(const char* path)
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    Trail trail;
    trail.begin("LoadXmlFile");
    return m_impl->loadFile(path, trail);
}

const char* CkXml::GetChildContent(const char* path)
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    Trail trail;
    trail.begin("GetChildContent");
    trail.add("path", path ? path : "");
    if (!m_impl->check(trail)) {
        m_impl->finish(trail, false);
        return nullptr;
    }
    std::lock_guard<std::mutex> treeGuard(m_impl->tree->lock);
    TreeNode* n = ckxml::walkPath(m_impl->node, fromAnsi(path), m_impl->registers, false, trail);
    if (n == nullptr) {
        m_impl->finish(trail, false);
        return nullptr;
    }
    m_impl->finish(trail, true);
    // CDATA holds its text raw; other content still has its references.
    std::string content = n->cdata ? n->content.str() : ckxml::resolveFive(n->content.view());
    return m_impl->result(toAnsi(std::move(content)));
}

const char* CkXml::GetXml()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    Trail trail;
    trail.begin("GetXml");
    if (!m_impl->check(trail)) {
        m_impl->finish(trail, false);
        return nullptr;
    }
    std::lock_guard<std::mutex> treeGuard(m_impl->tree->lock);
    try {
        std::string text = toAnsi(ckxml::writeText(m_impl->node, m_impl->emitDeclaration));
        m_impl->finish(trail, true);
        return m_impl->result(std::move(text));
    } catch (const std::bad_alloc&) {
        trail.message("Out of memory.");
        m_impl->finish(trail, false);
        return nullptr;
    }
}

bool CkXml::get_EmitDeclaration()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    return m_impl->emitDeclaration;
}

void CkXml::put_EmitDeclaration(bool emit)
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    m_impl->emitDeclaration = emit;
}

bool CkXml::get_EmitCompact()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    Trail trail;
    trail.begin("EmitCompact");
    if (!m_impl->check(trail)) {
        m_impl->finish(trail, false);
        return false;
    }
    std::lock_guard<std::mutex> treeGuard(m_impl->tree->lock);
    return m_impl->tree->compact;
}

void CkXml::put_EmitCompact(bool compact)
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    Trail trail;
    trail.begin("EmitCompact");
    if (!m_impl->check(trail)) {
        m_impl->finish(trail, false);
        return;
    }
    std::lock_guard<std::mutex> treeGuard(m_impl->tree->lock);
    m_impl->tree->compact = compact;
}

const char* CkXml::tag()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    Trail trail;
    trail.begin("Tag");
    if (!m_impl->check(trail)) {
        m_impl->finish(trail, false);
        return nullptr;
    }
    std::lock_guard<std::mutex> treeGuard(m_impl->tree->lock);
    return m_impl->result(Ostrel::Format::Utf8ToAnsi(m_impl->node->tag.data, m_impl->node->tag.size));
}

void CkXml::put_Tag(const char* tag)
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    Trail trail;
    trail.begin("Tag");
    if (!m_impl->check(trail)) {
        m_impl->finish(trail, false);
        return;
    }
    std::lock_guard<std::mutex> treeGuard(m_impl->tree->lock);
    try {
        m_impl->tree->assign(m_impl->node->tag, fromAnsi(tag));
    } catch (const std::bad_alloc&) {
        trail.message("Out of memory.");
        m_impl->finish(trail, false);
    }
}

int CkXml::get_NumChildren()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    Trail trail;
    trail.begin("NumChildren");
    if (!m_impl->check(trail)) {
        m_impl->finish(trail, false);
        return 0;
    }
    std::lock_guard<std::mutex> treeGuard(m_impl->tree->lock);
    return static_cast<int>(m_impl->node->children.size());
}

bool CkXml::AddAttribute(const char* name, const char* value)
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    Trail& trail = m_impl->scratchTrail;
    trail.begin("AddAttribute");
    if (!m_impl->check(trail))
        return m_impl->finish(trail, false);
    std::lock_guard<std::mutex> treeGuard(m_impl->tree->lock);
    try {
        TreeNode* n = m_impl->node;
        TreeInfo& tree = *m_impl->tree;
        // Elements built one attribute at a time mostly get several.
        tree.reserve(n->attributes, 8);
        const ckxml::Attribute attribute = tree.attribute(trimWhite(fromAnsi(name)), fromAnsi(value));
        tree.push(n->attributes, attribute);
    } catch (const std::bad_alloc&) {
        trail.message("Out of memory.");
        return m_impl->finish(trail, false);
    }
    return m_impl->finish(trail, true);
}

CkXml* CkXml::NewChild(const char* tag, const char* content)
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    Trail trail;
    trail.begin("NewChild");
    trail.add("tag", tag ? tag : "");
    if (!m_impl->check(trail)) {
        m_impl->finish(trail, false);
        return nullptr;
    }
    std::lock_guard<std::mutex> treeGuard(m_impl->tree->lock);
    try {
        std::string name = fromAnsi(tag);
        TreeNode* parent = m_impl->node;
        if (name.find('|') != std::string::npos) {
            if (name.back() == '|')
                name.pop_back();
            const std::size_t bar = name.rfind('|');
            if (bar != std::string::npos) {
                parent = ckxml::walkPath(parent, name.substr(0, bar), m_impl->registers, true, trail);
                if (parent == nullptr) {
                    m_impl->finish(trail, false);
                    return nullptr;
                }
                name.erase(0, bar + 1);
            }
        }
        TreeNode* child = m_impl->tree->appendChild(parent, ckxml::cleanNewTag(name));
        child->content = m_impl->tree->copy(escapeContent(fromAnsi(content)));
        CkXml* cursor = m_impl->cursorOn(child);
        m_impl->finish(trail, true);
        return cursor;
    } catch (const std::bad_alloc&) {
        trail.message("Out of memory.");
        m_impl->finish(trail, false);
        return nullptr;
    }
}

CkXml* CkXml::NewChildAfter(int index, const char* tag, const char* content)
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    Trail& trail = m_impl->scratchTrail;
    trail.begin("NewChildAfter");
    trail.add("index", std::to_string(index));
    trail.add("tag", tag ? tag : "");
    if (!m_impl->check(trail)) {
        m_impl->finish(trail, false);
        return nullptr;
    }
    std::lock_guard<std::mutex> treeGuard(m_impl->tree->lock);
    try {
        TreeNode* parent = m_impl->node;
        TreeNode* child = m_impl->tree->newNode(ckxml::cleanNewTag(fromAnsi(tag)), parent);
        child->content = m_impl->tree->copy(escapeContent(fromAnsi(content)));
        const std::size_t at = static_cast<std::size_t>(index < 0 ? 0 : index) + 1;
        m_impl->tree->insert(parent->children, at, child);
        CkXml* cursor = m_impl->cursorOn(child);
        m_impl->finish(trail, true);
        return cursor;
    } catch (const std::bad_alloc&) {
        trail.message("Out of memory.");
        m_impl->finish(trail, false);
        return nullptr;
    }
}

CkXml* CkXml::GetSelf()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    Trail trail;
    trail.begin("GetSelf");
    if (!m_impl->check(trail)) {
        m_impl->finish(trail, false);
        return nullptr;
    }
    try {
        CkXml* cursor = m_impl->cursorOn(m_impl->node);
        m_impl->finish(trail, true);
        return cursor;
    } catch (const std::bad_alloc&) {
        trail.message("Out of memory.");
        m_impl->finish(trail, false);
        return nullptr;
    }
}

int CkXml::get_I()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    return m_impl->registers[0];
}

void CkXml::put_I(int value)
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    m_impl->registers[0] = value;
}

int CkXml::get_J()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    return m_impl->registers[1];
}

void CkXml::put_J(int value)
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    m_impl->registers[1] = value;
}

int CkXml::get_K()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    return m_impl->registers[2];
}

void CkXml::put_K(int value)
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    m_impl->registers[2] = value;
}

const char* CkXml::lastErrorText()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    return m_impl->result(m_impl->lastError);
}

bool CkXmlAccess::withNode(CkXml& xml, const std::function<void(const ckxml::TreeNode&)>& fn)
{
    CkXml::Impl& impl = *xml.m_impl;
    std::lock_guard<std::mutex> guard(impl.lock);
    Trail trail;
    trail.begin("withNode");
    if (!impl.check(trail)) {
        impl.finish(trail, false);
        return false;
    }
    std::lock_guard<std::mutex> treeGuard(impl.tree->lock);
    fn(*impl.node);
    return true;
}
