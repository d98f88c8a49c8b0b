// A small pull reader for the XML files the program keeps (the settings file):
// it walks a document held in memory from one element tag to the next and
// never reads past the end of the text it was given. Comments, processing
// instructions, declarations (with an internal subset), CDATA sections and
// character data are stepped over; anything it cannot make sense of ends the
// walk with an error instead of a guess.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

class XmlPullReader {
public:
    enum class Node { StartElement, EndElement, End, Error };

    // The reader refers to text; the caller keeps it alive while reading.
    explicit XmlPullReader(std::string_view text);

    // Advances to the next element tag. An empty element (<a/>) gives one
    // StartElement and no EndElement. After End or Error it stays there.
    Node Next();

    // Name of the current element tag.
    const std::string& Name() const { return name_; }
    // Value of the current start tag's attribute, entities decoded; the first
    // one when a name repeats; nullptr when absent.
    const std::string* Attribute(std::string_view name) const;
    size_t AttributeCount() const { return attributes_.size(); }

private:
    Node Fail();
    bool SkipPast(std::string_view end);
    bool SkipDeclaration();
    bool ReadName(std::string* out);
    void SkipSpace();
    bool ReadStartTag();
    bool ReadEndTag();

    std::string_view text_;
    size_t at_ = 0;
    bool done_ = false;
    Node final_ = Node::End;
    std::string name_;
    std::vector<std::pair<std::string, std::string>> attributes_;
    std::vector<std::string> open_;  // element names not yet closed
};

// Replaces the predefined entities (&amp; &lt; &gt; &quot; &apos;) and
// character references (&#65; &#x41;) of an attribute value by their
// characters. A reference to a character outside 1..255, an unknown entity or
// a lone ampersand is kept as written, so "R&D" stays "R&D".
std::string DecodeXmlEntities(std::string_view raw);

// The five special characters written as entities, for attribute values.
std::string EscapeXmlAttribute(std::string_view text);
