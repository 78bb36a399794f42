#include <gtest/gtest.h>

#include <cstring>

#include "sso_glib_ptr.h"

namespace {

// A C-style getter: hands out a malloc'ed copy through an out-parameter.
int HandOut(const char *text, char **out)
{
    *out = text ? strdup(text) : nullptr;
    return text ? 0 : -1;
}

TEST(GlibPtr, AdoptingAFloatingVariantSinksItSoTheOwnerHoldsTheOnlyReference)
{
    GVariant *raw = g_variant_new_int32(7);
    ASSERT_TRUE(g_variant_is_floating(raw));
    sso_glib::VariantPtr owned = sso_glib::AdoptVariant(raw);
    EXPECT_FALSE(g_variant_is_floating(owned.get()));
    EXPECT_EQ(g_variant_get_int32(owned.get()), 7);
    EXPECT_EQ(sso_glib::AdoptVariant(nullptr), nullptr);
}

TEST(GlibPtr, AnObjectOwnerDropsItsReferenceOnReset)
{
    GObject *object = G_OBJECT(g_cancellable_new());
    g_object_ref(object); // the test's own, to watch the count
    {
        sso_glib::ObjectPtr<GObject> owned(object);
        EXPECT_EQ(object->ref_count, 2u);
    }
    EXPECT_EQ(object->ref_count, 1u);
    g_object_unref(object);
}

TEST(GlibPtr, OutTakesWhatTheGetterHandsOutWhenTheStatementEnds)
{
    sso_glib::MallocPtr<char> text;
    int ret = HandOut("first", sso_glib::Out(text));
    EXPECT_EQ(ret, 0);
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text.get(), "first");
    // A second call replaces (and frees) the first value.
    ret = HandOut("second", sso_glib::Out(text));
    EXPECT_STREQ(text.get(), "second");
    // A getter that hands out nothing leaves the owner empty.
    ret = HandOut(nullptr, sso_glib::Out(text));
    EXPECT_EQ(ret, -1);
    EXPECT_EQ(text, nullptr);
}

TEST(GlibPtr, AnErrorOwnerFillsThroughOutAndKeepsTheMessage)
{
    sso_glib::ErrorPtr error;
    gboolean ok = g_variant_type_string_is_valid("(") ? TRUE : FALSE;
    g_set_error(sso_glib::Out(error), G_IO_ERROR, G_IO_ERROR_FAILED, "broken %d", 3);
    EXPECT_FALSE(ok);
    ASSERT_NE(error, nullptr);
    EXPECT_STREQ(error->message, "broken 3");
}

TEST(GlibPtr, AStringVectorOwnerFreesTheVectorAndItsTexts)
{
    sso_glib::StrvPtr parts(g_strsplit("a,b,c", ",", -1));
    ASSERT_NE(parts, nullptr);
    EXPECT_EQ(g_strv_length(parts.get()), 3u);
    EXPECT_STREQ(parts.get()[2], "c");
}

} // namespace
