#include <import/files/KrPlainXml.h>

#include <gtest/gtest.h>

#include <string>

namespace
{

bool isPlain(const std::string& text)
{
    return KrPlainXml().read(text, KrPlainXml::Origin::File);
}

} // namespace

TEST(KrPlainXml, WhatReadersCouldTakeInDifferentWaysIsNotPlain)
{
    // Each within a long text, too: that is looked at in blocks.
    const std::string space(200, ' ');
    for (const char* const text : {"",
                                   "<a>",
                                   "<a></b>",
                                   "</a>",
                                   "<a/><b/>",
                                   "<a/>x",
                                   "x<a/>",
                                   "<a><b></a></b>",
                                   "<a",
                                   "<a b",
                                   "<a b=\"c",
                                   "<a/ >",
                                   "<a b='1' b='2'/>",
                                   "<a b='1'c='2'/>",
                                   "<a b=1/>",
                                   "<a b/>",
                                   "<a b='<'/>",
                                   "<a b='&lt;'/>",
                                   "<a b='1\n2'/>",
                                   "<a b='1\t2'/>",
                                   "<a>&amp;</a>",
                                   "<a><![CDATA[x]]></a>",
                                   "<a>]]></a>",
                                   "<a><?b?></a>",
                                   "<?b?><a/>",
                                   "<!DOCTYPE a><a/>",
                                   "<a>1<!-- -->2</a>",
                                   "<a><!-- -- --></a>",
                                   "<a><!-- ---></a>",
                                   "<a><!-- </a>",
                                   "<a>\x01</a>",
                                   "<a>\xFF</a>",
                                   "<a>\xEF\xBF\xBE</a>",
                                   "<\xC3\xA4/>",
                                   "<1/>",
                                   "< a/>",
                                   "<:a/>",
                                   "<a:/>",
                                   "<a:b:c/>"}) {
        EXPECT_FALSE(isPlain(text)) << text;
        EXPECT_FALSE(isPlain(space + text + space)) << text;
    }
    EXPECT_FALSE(isPlain(std::string("<a>\0</a>", 8)));
}

TEST(KrPlainXml, ElementsKnowTheirPlaces)
{
    const std::string text =
        " <?xml odd?>\r\n<a x:b = 'it' c=\"1>2\">\n <!-- < -->\t<b\td='4'>  <c/> two <d></d>three</b >"
        "<e>\xC3\xA4</e></a> \n";
    KrPlainXml xml;
    ASSERT_TRUE(xml.read(text, KrPlainXml::Origin::File));
    const auto& all = xml.elements();
    ASSERT_EQ(all.size(), 5u);
    const std::pair<const char*, std::uint32_t> expected[] = {{"a", 5}, {"b", 4}, {"c", 3}, {"d", 4}, {"e", 5}};
    for (std::size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(all[i].name, expected[i].first);
        EXPECT_EQ(all[i].next, expected[i].second) << expected[i].first;
    }
    EXPECT_EQ(xml.attributeOf(all[0], "x:b"), "it");
    EXPECT_EQ(xml.attributeOf(all[0], "b"), "");
    EXPECT_EQ(xml.attributeOf(all[0], "c"), "1>2");
    EXPECT_EQ(all[1].text, " two ");
    EXPECT_EQ(text.substr(all[1].begin, all[1].end - all[1].begin), "<b\td='4'>  <c/> two <d></d>three</b >");
    EXPECT_EQ(text.substr(all[1].endTag, 4), "</b ");
    EXPECT_EQ(all[2].endTag, all[2].end);
    EXPECT_EQ(all[3].parent, 1u);
    EXPECT_EQ(all[4].text, "\xC3\xA4");
    ASSERT_EQ(xml.comments().size(), 1u);
    EXPECT_EQ(text.substr(xml.comments()[0].begin, 10), "<!-- < -->");
}
