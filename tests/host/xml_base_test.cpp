// The XML document class: cursor semantics, building, writing and refusal of unsafe input.
#include "host/xml_base.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>

using QXBase::CXmlBase;

namespace {

const char* const kDoc =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<Root>\n"
    "  <a>1</a>\n"
    "  <b>2</b>\n"
    "  <c><inner>x</inner><inner>y</inner></c>\n"
    "  <b>3</b>\n"
    "  <empty/>\n"
    "</Root>\n";

// A document entered at its root.
struct Entered {
    CXmlBase xml;
    Entered() {
        EXPECT_TRUE(xml.Parse(kDoc));
        EXPECT_TRUE(xml.FindElem("Root"));
        EXPECT_TRUE(xml.IntoElem());
    }
};

}  // namespace

TEST(XmlCursor, OrderedSearchNeverGoesBackFromTheCursor) {
    Entered d;
    ASSERT_TRUE(d.xml.FindElem(nullptr));  // an empty or null name matches any element
    EXPECT_EQ(d.xml.GetTagName(), "a");
    ASSERT_TRUE(d.xml.FindElem("b"));
    EXPECT_EQ(d.xml.GetData(), "2");
    EXPECT_FALSE(d.xml.FindElem("a"));  // stands before the cursor
    EXPECT_EQ(d.xml.GetData(), "2");    // a failed search leaves the cursor
    ASSERT_TRUE(d.xml.FindElem("b"));   // the next one after the cursor
    EXPECT_EQ(d.xml.GetData(), "3");
    EXPECT_FALSE(d.xml.FindElem("b"));
    EXPECT_EQ(d.xml.GetData(), "3");
}

TEST(XmlCursor, UnorderedSearchStartsFromTheFirstChild) {
    Entered d;
    ASSERT_TRUE(d.xml.FindElem("c"));
    ASSERT_TRUE(d.xml.FindElemNoOrder("a"));
    EXPECT_EQ(d.xml.GetData(), "1");
    ASSERT_TRUE(d.xml.FindElemNoOrder("b"));  // the first b, not the one after the cursor
    EXPECT_EQ(d.xml.GetData(), "2");
    EXPECT_FALSE(d.xml.FindElemNoOrder("missing"));
    EXPECT_EQ(d.xml.GetData(), "2");
    ASSERT_TRUE(d.xml.FindElemNoOrder("empty"));
    EXPECT_EQ(d.xml.GetData(), "");
    ASSERT_TRUE(d.xml.FindElemNoOrder("c"));
    EXPECT_EQ(d.xml.GetData(), "");  // only element children
}

TEST(XmlCursor, IntoOutOfAndSiblings) {
    Entered d;
    EXPECT_FALSE(d.xml.IntoElem());  // nothing current yet
    ASSERT_TRUE(d.xml.FindElem("c"));
    ASSERT_TRUE(d.xml.IntoElem());
    EXPECT_EQ(d.xml.GetData(), "");  // no current element inside c yet
    ASSERT_TRUE(d.xml.NextSibElem());
    EXPECT_EQ(d.xml.GetData(), "x");
    ASSERT_TRUE(d.xml.NextSibElem());
    EXPECT_EQ(d.xml.GetData(), "y");
    EXPECT_FALSE(d.xml.NextSibElem());
    EXPECT_EQ(d.xml.GetData(), "y");
    ASSERT_TRUE(d.xml.OutOfElem());  // back in Root with c current
    EXPECT_EQ(d.xml.GetTagName(), "c");
    ASSERT_TRUE(d.xml.FindElem("b"));  // the search continues after c
    EXPECT_EQ(d.xml.GetData(), "3");
    ASSERT_TRUE(d.xml.OutOfElem());
    EXPECT_EQ(d.xml.GetTagName(), "Root");
    EXPECT_FALSE(d.xml.OutOfElem());  // top level
}

TEST(XmlCursor, DecodesEntitiesAndReparseResetsTheCursor) {
    CXmlBase xml;
    ASSERT_TRUE(xml.Parse("<a>&lt;&amp;&gt;&quot;&apos;&#65;&#x42;<![CDATA[<c>]]></a>"));
    ASSERT_TRUE(xml.FindElem("a"));
    EXPECT_EQ(xml.GetData(), "<&>\"'AB");  // first text node only
    ASSERT_TRUE(xml.IntoElem());
    ASSERT_TRUE(xml.Parse("<x><y>1</y></x>"));
    EXPECT_FALSE(xml.FindElem("y"));  // a new parse starts at top level again
    ASSERT_TRUE(xml.FindElem("x"));
}

TEST(XmlParse, RefusesMalformedAndUnsafeDocuments) {
    const char* const bad[] = {
        "",
        "   ",
        "<a>",
        "<a></b>",
        "<a/><b/>",
        "text<a/>",
        "<a/>text",
        "<!DOCTYPE a><a/>",
        "<?xml version=\"1.0\"?>\n<!-- c -->\n<!DOCTYPE a SYSTEM \"file:///etc/passwd\"><a/>",
        "\xEF\xBB\xBF<!DOCTYPE a><a/>",
        "<a><!DOCTYPE b></a>",
    };
    for (const char* text : bad) {
        CXmlBase xml;
        EXPECT_FALSE(xml.Parse(text)) << text;
        EXPECT_FALSE(xml.FindElem(nullptr)) << text;  // the document is empty after a failure
    }
    CXmlBase xml;
    EXPECT_FALSE(xml.Parse(static_cast<const char*>(nullptr)));
    EXPECT_FALSE(xml.Parse(std::string("<a/>\0<b/>", 9)));
}

TEST(XmlParse, RefusesEntityExpansionAndVeryDeepDocumentsQuickly) {
    // Nine levels of tenfold entity expansion, and a huge internal subset to walk.
    std::string laughs = "<!DOCTYPE l [<!ENTITY l0 \"lol\">";
    for (int i = 1; i < 10; ++i) {
        laughs += "<!ENTITY l" + std::to_string(i) + " \"";
        for (int k = 0; k < 10; ++k) laughs += "&l" + std::to_string(i - 1) + ";";
        laughs += "\">";
    }
    laughs += "]><l>&l9;</l>";
    std::string big = "<!DOCTYPE a [" + std::string(4 << 20, ' ') + "]><a/>";
    const auto start = std::chrono::steady_clock::now();
    CXmlBase xml;
    EXPECT_FALSE(xml.Parse(laughs));
    EXPECT_FALSE(xml.Parse(big));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));

    auto nested = [](int depth) {
        std::string text;
        for (int i = 0; i < depth; ++i) text += "<a>";
        for (int i = 0; i < depth; ++i) text += "</a>";
        return text;
    };
    EXPECT_TRUE(xml.Parse(nested(100)));
    EXPECT_FALSE(xml.Parse(nested(1000)));
    const auto deep = std::chrono::steady_clock::now();
    EXPECT_FALSE(xml.Parse(nested(200000)));  // indented, it would be tens of gigabytes
    EXPECT_LT(std::chrono::steady_clock::now() - deep, std::chrono::seconds(2));
}

namespace {

CXmlBase& buildStatus(CXmlBase& xml) {
    xml.CreateDeclaration("1.0", "UTF-8");
    xml.CreateRoot("ResponseStatus");
    xml.SetAttribute("version", "2.0");
    xml.SetAttribute("xmlns", "urn:x");
    xml.AddNode("requestURL", "/a?b&c");
    xml.OutOfElem();
    xml.AddNode("box");
    xml.AddNode("inner", std::string("<1>"));
    xml.SetAttribute("k", "v");  // on the new element: it is current
    xml.OutOfElem();
    xml.AddNode("none");
    xml.OutOfElem();
    xml.OutOfElem();
    return xml;
}

const char* const kBuilt =
    "<ResponseStatus version=\"2.0\" xmlns=\"urn:x\">\n"
    "  <requestURL>/a?b&amp;c</requestURL>\n"
    "  <box>\n"
    "    <inner k=\"v\">&lt;1&gt;</inner>\n"
    "    <none />\n"
    "  </box>\n"
    "</ResponseStatus>\n";

}  // namespace

TEST(XmlBuild, AddNodeEntersTheNewElementAndWritesInOrder) {
    CXmlBase xml;
    buildStatus(xml);
    EXPECT_EQ(xml.WriteToBuf(),
              std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n") + kBuilt);
    EXPECT_EQ(xml.GetChildren(), kBuilt);
    CXmlBase back;
    ASSERT_TRUE(back.Parse(xml.WriteToBuf()));
    ASSERT_TRUE(back.FindElem("ResponseStatus"));
    ASSERT_TRUE(back.IntoElem());
    ASSERT_TRUE(back.FindElem("requestURL"));
    EXPECT_EQ(back.GetData(), "/a?b&c");
}

TEST(XmlBuild, RefusesASecondRoot) {
    CXmlBase xml;
    ASSERT_TRUE(xml.CreateRoot("a"));
    EXPECT_FALSE(xml.CreateRoot("b"));
    EXPECT_EQ(xml.GetTagName(), "a");  // CreateRoot entered the root: (root, none)
    ASSERT_TRUE(xml.OutOfElem());      // (document, root)
    EXPECT_FALSE(xml.OutOfElem());
    EXPECT_FALSE(xml.AddNode("b"));  // would be a second root
    EXPECT_EQ(xml.GetChildren(), "<a />\n");
}

TEST(XmlWrite, WriteToBufNeverExceedsItsCapacity) {
    CXmlBase xml;
    buildStatus(xml);
    const std::string full = xml.WriteToBuf();
    for (int capacity : {1, 2, 10, static_cast<int>(full.size()), static_cast<int>(full.size()) + 1,
                         static_cast<int>(full.size()) + 50}) {
        std::string buffer(static_cast<size_t>(capacity) + 8, '#');
        const int written = xml.WriteToBuf(buffer.data(), capacity);
        const size_t expected = std::min(full.size(), static_cast<size_t>(capacity) - 1);
        EXPECT_EQ(written, static_cast<int>(expected)) << capacity;
        EXPECT_EQ(std::string(buffer.data(), expected), full.substr(0, expected));
        EXPECT_EQ(buffer[expected], '\0');
        EXPECT_EQ(buffer.substr(static_cast<size_t>(capacity)), std::string(8, '#')) << capacity;
    }
    char one = 'x';
    EXPECT_EQ(xml.WriteToBuf(&one, 0), -1);
    EXPECT_EQ(one, 'x');
    EXPECT_EQ(xml.WriteToBuf(nullptr, 10), -1);
}

// No line break of a text reaches the serialised document, and the text is always UTF-8; a
// parser reads back the same text (with U+FFFD where the bytes were not UTF-8).
TEST(XmlWrite, LineBreaksAsReferencesAndInvalidUtf8Replaced) {
    const std::string fffd = "\xEF\xBF\xBD";
    const struct {
        std::string text, written, readBack;
    } cases[] = {
        {"a\r\n--boundary\r\nb", "a&#13;&#10;--boundary&#13;&#10;b", "a\r\n--boundary\r\nb"},
        {"/x\xFF\xFEy&", "/x" + fffd + fffd + "y&amp;", "/x" + fffd + fffd + "y&"},
        {"\xC0\xAF|\xED\xA0\x80|\x01|\xF4\x90\x80\x80", "",
         ""},  // overlong, surrogate, C0, >10FFFF
        {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80 <ok>",
         "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80 &lt;ok&gt;",
         "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80 <ok>"},
    };
    for (const auto& c : cases) {
        CXmlBase xml;
        ASSERT_TRUE(xml.CreateRoot("r"));
        xml.SetAttribute("k", c.text.c_str());
        xml.AddNode("t", c.text);
        const std::string text = xml.GetChildren();
        EXPECT_EQ(text.find_first_of("\r\x01"), std::string::npos) << text;
        for (size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 1)) {
            EXPECT_EQ(text[at - 1], '>') << text;  // only the layout's line ends
        }
        CXmlBase back;
        ASSERT_TRUE(back.Parse(xml.WriteToBuf())) << text;
        ASSERT_TRUE(back.FindElem("r") && back.IntoElem() && back.FindElem("t"));
        if (c.written.empty()) {  // every invalid byte replaced, the separators kept
            EXPECT_EQ(back.GetData(), fffd + fffd + "|" + fffd + fffd + fffd + "|" + fffd + "|" +
                                          fffd + fffd + fffd + fffd);
            continue;
        }
        EXPECT_NE(text.find("<t>" + c.written + "</t>"), std::string::npos) << text;
        EXPECT_EQ(back.GetData(), c.readBack);
    }
}
