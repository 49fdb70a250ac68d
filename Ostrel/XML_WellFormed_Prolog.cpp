// The parts of a document outside its elements, and the markup that holds no elements: the
// XML declaration, comments, processing instructions, CDATA sections and the DOCTYPE.

#include <cstring>
#include <string>

#include <vellument/Ostrel_XML.h>

#include "Ostrel/XML_WellFormed_Checker.h"

namespace oxml {

bool Checker::document()
{
    if (!declaration() || !misc(true))
        return false;
    if (p_ == end_)
        return fail(OXML_E_NO_ROOT, "no root element", p_);
    if (*p_ != '<' || p_[1] == '!' || p_[1] == '/')
        return fail(OXML_E_OUTSIDE_ROOT, "text or markup before the root element", p_);
    if (!start_tag())
        return false;
    if (!content() || !misc(false))
        return false;
    if (p_ != end_) {
        if (*p_ == '<')
            return fail(OXML_E_OUTSIDE_ROOT, "a second root element", p_);
        return fail(OXML_E_OUTSIDE_ROOT, "text after the root element", p_);
    }
    return true;
}

bool Checker::comment()
{
    p_ += 4;
    for (;;) {
        if (*p_ == '-' && p_[1] == '-') {
            if (p_[2] != '>')
                return fail(OXML_E_SYNTAX, "\"--\" inside a comment", p_);
            p_ += 3;
            return true;
        }
        if (!any_char("a comment"))
            return false;
    }
}

bool Checker::processing_instruction()
{
    const unsigned char* start = p_;
    p_ += 2;
    const unsigned char* target = p_;
    if (!name("a processing instruction's target"))
        return false;
    if (p_ - target == 3 && (target[0] | 0x20) == 'x' && (target[1] | 0x20) == 'm' && (target[2] | 0x20) == 'l')
        return fail(OXML_E_SYNTAX, "an XML declaration that is not at the start of the text", start);
    if (at("?>")) {
        p_ += 2;
        return true;
    }
    if (!skip_space())
        return fail(OXML_E_SYNTAX, "white space expected after a processing instruction's target", p_);
    return chars_until("?>", "a processing instruction");
}

// Any characters up to the terminator, and past it.
bool Checker::chars_until(const char* terminator, const char* inside)
{
    while (!at(terminator))
        if (!any_char(inside))
            return false;
    p_ += std::strlen(terminator);
    return true;
}

bool Checker::cdata()
{
    p_ += 9;
    r_.cdata = true;
    stop_recording();  // the tree holds no text
    return chars_until("]]>", "a CDATA section");
}

bool Checker::quoted_literal(const char* what)
{
    const unsigned char quote = *p_;
    if (quote != '"' && quote != '\'')
        return fail(OXML_E_SYNTAX, std::string("a quoted ") + what + " expected", p_);
    ++p_;
    while (*p_ != quote)
        if (!any_char(what))
            return false;
    ++p_;
    return true;
}

// The document type declaration. Its internal subset is checked for its characters, quoting,
// comments, processing instructions and the end of each declaration, not for the grammar of
// each declaration: nothing of it is used.
bool Checker::doctype()
{
    const unsigned char* start = p_;
    p_ += 9;
    stop_recording();  // what a DTD declares (defaults, entities) isn't the tree's to apply
    if (!skip_space())
        return fail(OXML_E_SYNTAX, "white space expected after <!DOCTYPE", p_);
    if (!name("the document type's name"))
        return false;
    const bool space = skip_space();
    if (space && (at("SYSTEM") || at("PUBLIC"))) {
        const bool is_public = *p_ == 'P';
        p_ += 6;
        if (!skip_space() || !quoted_literal("identifier"))
            return fail(OXML_E_SYNTAX, "a quoted identifier expected in the DOCTYPE", p_);
        if (is_public && (!skip_space() || !quoted_literal("identifier")))
            return fail(OXML_E_SYNTAX, "a system identifier expected in the DOCTYPE", p_);
        skip_space();
    }
    if (*p_ == '[') {
        ++p_;
        for (;;) {
            skip_space();
            if (*p_ == ']') {
                ++p_;
                break;
            }
            if (at("<!--")) {
                if (!comment())
                    return false;
            } else if (at("<?")) {
                if (!processing_instruction())
                    return false;
            } else if (at("<!")) {
                p_ += 2;
                while (*p_ != '>') {
                    if (*p_ == '"' || *p_ == '\'') {
                        if (!quoted_literal("literal"))
                            return false;
                    } else if (*p_ == '<') {
                        return fail(OXML_E_SYNTAX, "'<' inside a markup declaration", p_);
                    } else if (!any_char("the DOCTYPE")) {
                        return false;
                    }
                }
                ++p_;
            } else if (*p_ == '%') {
                ++p_;
                if (!name("a parameter entity's name"))
                    return false;
                if (*p_ != ';')
                    return fail(OXML_E_BAD_REFERENCE, "';' expected after a parameter entity reference", p_);
                ++p_;
            } else if (p_ == end_) {
                return fail(OXML_E_UNEXPECTED_END, "the text ends inside the DOCTYPE", start);
            } else {
                return fail(OXML_E_SYNTAX, "unexpected text in the DOCTYPE's internal subset", p_);
            }
        }
        skip_space();
    }
    if (*p_ != '>')
        return fail(OXML_E_SYNTAX, "'>' expected to end the DOCTYPE", p_);
    ++p_;
    return true;
}

// The XML declaration, when the text starts with one.
bool Checker::declaration()
{
    if (!at("<?xml") || !((scan::class_of(p_[5]) & scan::kSpace) || p_[5] == '?'))
        return true;
    const unsigned char* start = p_;
    p_ += 5;
    auto bad = [&](const char* what) { return fail(OXML_E_SYNTAX, std::string("the XML declaration: ") + what, p_); };
    auto equals = [&]() {
        skip_space();
        if (*p_ != '=')
            return false;
        ++p_;
        skip_space();
        return *p_ == '"' || *p_ == '\'';
    };
    // The length of the quoted value, whose characters must all pass the test; 0 when one fails.
    auto value = [&](bool (*ok)(unsigned char, std::size_t)) -> std::size_t {
        const unsigned char quote = *p_++;
        std::size_t i = 0;
        for (; *p_ != quote; ++p_, ++i)
            if (p_ == end_ || !ok(*p_, i))
                return 0;
        ++p_;
        return i;
    };
    if (!skip_space() || !at("version"))
        return bad("version expected");
    p_ += 7;
    if (!equals() || value([](unsigned char c, std::size_t i) {
            return i == 0 ? c == '1' : i == 1 ? c == '.' : (c >= '0' && c <= '9');
        }) < 3)
        return bad("a version 1.x expected");
    bool space = skip_space();
    if (space && at("encoding")) {
        p_ += 8;
        if (!equals() || 0 == value([](unsigned char c, std::size_t i) {
                const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
                return i == 0 ? letter : letter || (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
            }))
            return bad("a bad encoding name");
        space = skip_space();
    }
    if (space && at("standalone")) {
        p_ += 10;
        if (!equals())
            return bad("a bad standalone value");
        const unsigned char quote = *p_;
        ++p_;
        if (at("yes"))
            p_ += 3;
        else if (at("no"))
            p_ += 2;
        else
            return bad("standalone must be yes or no");
        if (*p_ != quote)
            return bad("standalone must be yes or no");
        ++p_;
        skip_space();
    }
    if (!at("?>"))
        return p_ == end_ ? fail(OXML_E_UNEXPECTED_END, "the text ends inside the XML declaration", start)
                          : bad("'?>' expected");
    p_ += 2;
    return true;
}

// Comments, processing instructions and white space around the root; before it also one DOCTYPE.
bool Checker::misc(bool before_root)
{
    bool doctype_seen = false;
    for (;;) {
        skip_space();
        if (at("<!--")) {
            if (!comment())
                return false;
        } else if (at("<?")) {
            if (!processing_instruction())
                return false;
        } else if (at("<!DOCTYPE")) {
            if (!before_root || doctype_seen)
                return fail(OXML_E_SYNTAX, "a DOCTYPE out of place", p_);
            doctype_seen = true;
            if (!doctype())
                return false;
        } else {
            return true;
        }
    }
}

} // namespace oxml
