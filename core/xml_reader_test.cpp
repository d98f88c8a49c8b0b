#include "core/xml_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Node = XmlPullReader::Node;

// The element tags of a document as "<name" / "</name", ending in "END" or "ERROR".
std::vector<std::string> Walk(const std::string& text) {
    XmlPullReader r(text);
    std::vector<std::string> out;
    for (int guard = 0; guard < 1000; ++guard) {
        Node n = r.Next();
        if (n == Node::End || n == Node::Error) {
            out.push_back(n == Node::End ? "END" : "ERROR");
            // Once finished, the reader stays finished.
            EXPECT_EQ(r.Next(), n);
            return out;
        }
        out.push_back((n == Node::StartElement ? "<" : "</") + r.Name());
    }
    ADD_FAILURE() << "the reader does not finish";
    return out;
}

TEST(XmlPullReader, StepsOverEverythingButTags) {
    const std::string doc =
        "\xEF\xBB\xBF<?xml version=\"1.0\"?>\n<!DOCTYPE a [ <!ENTITY e \"x>y\"> <!-- ]> --> ]>\n"
        "<a x = 'one' y=\"t&amp;w&#111;\">text<!-- <b> --><![CDATA[<c>]]><?pi <d>?><b/>tail</a>\n<!-- after -->";
    EXPECT_EQ(Walk(doc), (std::vector<std::string>{"<a", "<b", "</a", "END"}));

    XmlPullReader r(doc);
    ASSERT_EQ(r.Next(), Node::StartElement);
    ASSERT_NE(r.Attribute("x"), nullptr);
    EXPECT_EQ(*r.Attribute("x"), "one");
    EXPECT_EQ(*r.Attribute("y"), "t&wo");
    EXPECT_EQ(r.Attribute("z"), nullptr);
    ASSERT_EQ(r.Next(), Node::StartElement);
    EXPECT_EQ(r.AttributeCount(), 0u);

    // A repeated attribute: the first one counts.
    XmlPullReader twice("<a k='1' k='2'/>");
    ASSERT_EQ(twice.Next(), Node::StartElement);
    EXPECT_EQ(*twice.Attribute("k"), "1");
}

TEST(XmlPullReader, MalformedMarkupEndsInError) {
    const char* bad[] = {"<r>",          "<r></s>",       "<r a='1/>",    "<r a=1/>",      "<r a='<'/>",
                         "<r a/>",       "<r><!-- x </r>", "<1r/>",        "<r a='1'b='2'/>", "<r><?pi </r>",
                         "<r></r",       "</r>",          "<r><![CDATA[x</r>", "<![CDATA[x]]><r/>", "<!DOCTYPE r",
                         "<r><!DOCTYPE x></r>", "<r><![CD[x]]></r>", "<", "<r", "<r a", "<r a=", "<r a='"};
    for (const char* b : bad) {
        std::vector<std::string> w = Walk(b);
        EXPECT_EQ(w.back(), "ERROR") << b;
    }
    // Tags before the fault are still delivered: a pull reader sees them first.
    EXPECT_EQ(Walk("<a><b k='v'/>"), (std::vector<std::string>{"<a", "<b", "ERROR"}));
    EXPECT_EQ(Walk("plain text"), (std::vector<std::string>{"END"}));
    EXPECT_EQ(Walk(""), (std::vector<std::string>{"END"}));
    // Comments holding markup characters, the shapes that once crashed.
    EXPECT_EQ(Walk("<a><!-- > --><!-->--><b/></a>"), (std::vector<std::string>{"<a", "<b", "</a", "END"}));
}

TEST(XmlPullReader, EntitiesAndEscapes) {
    EXPECT_EQ(DecodeXmlEntities("R&D"), "R&D");
    EXPECT_EQ(DecodeXmlEntities("R&amp;D"), "R&D");
    EXPECT_EQ(DecodeXmlEntities("&lt;&gt;&quot;&apos;"), "<>\"'");
    EXPECT_EQ(DecodeXmlEntities("&#65;&#x42;&#X43;"), "AB&#X43;");
    EXPECT_EQ(DecodeXmlEntities("&#0;&#256;&#x;&#;&bogus;&"), "&#0;&#256;&#x;&#;&bogus;&");
    EXPECT_EQ(DecodeXmlEntities("a & b; c"), "a & b; c");
    EXPECT_EQ(DecodeXmlEntities("&#99999999999999999999;"), "&#99999999999999999999;");

    // Every byte but NUL survives escaping and decoding.
    std::string all;
    for (int c = 1; c < 256; ++c) all += static_cast<char>(c);
    std::string escaped = EscapeXmlAttribute(all);
    EXPECT_EQ(escaped.find('<'), std::string::npos);
    EXPECT_EQ(escaped.find('"'), std::string::npos);
    EXPECT_EQ(DecodeXmlEntities(escaped), all);
    std::string doc = "<a v=\"" + escaped + "\"/>";
    XmlPullReader rd(doc);
    ASSERT_EQ(rd.Next(), Node::StartElement);
    EXPECT_EQ(*rd.Attribute("v"), all);
}

}  // namespace
