#include "Theme.h"

#include <QFontInfo>
#include <QImage>
#include <QSet>

#include <gtest/gtest.h>

using namespace corvane;

namespace {

// Counts the pixels that are drawn at all, and checks that every drawn pixel
// carries the requested colour (the icons must take any colour).
struct Coverage {
    int drawn = 0;
    int offColour = 0;
};

Coverage coverage(const QPixmap& pixmap, const QColor& colour)
{
    Coverage c;
    const QImage image = pixmap.toImage().convertToFormat(QImage::Format_ARGB32);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QColor pixel = image.pixelColor(x, y);
            if (pixel.alpha() < 200)
                continue;
            ++c.drawn;
            if (qAbs(pixel.red() - colour.red()) > 2 || qAbs(pixel.green() - colour.green()) > 2
                || qAbs(pixel.blue() - colour.blue()) > 2)
                ++c.offColour;
        }
    }
    return c;
}

} // namespace

TEST(Theme, EverySymbolHasAnIconThatTakesTheRequestedColour)
{
    QSet<QString> names;
    for (const theme::Symbol symbol : theme::allSymbols) {
        names.insert(theme::symbolName(symbol));
        SCOPED_TRACE(theme::symbolName(symbol).toStdString());
        for (const QColor& colour : {theme::red(), theme::cyan()}) {
            const Coverage c = coverage(theme::symbolPixmap(symbol, colour, 32), colour);
            EXPECT_GT(c.drawn, 20) << "icon missing or empty";
            EXPECT_EQ(c.offColour, 0);
        }
    }
    EXPECT_EQ(names.size(), qsizetype(theme::allSymbols.size()));
    EXPECT_EQ(theme::symbolName(theme::Symbol::xmarkOctagonFill), QStringLiteral("xmark.octagon.fill"));
}

TEST(Theme, HighDensityPixmaps)
{
    const QPixmap sharp = theme::symbolPixmap(theme::Symbol::sparkles, theme::cyan(), 10, 2.0);
    EXPECT_EQ(sharp.size(), QSize(20, 20));
    EXPECT_DOUBLE_EQ(sharp.devicePixelRatio(), 2.0);
    // The same icon asked for again in another colour is not served from the
    // first colour's cache entry.
    const QPixmap other = theme::symbolPixmap(theme::Symbol::sparkles, theme::green(), 10, 2.0);
    EXPECT_EQ(coverage(other, theme::green()).offColour, 0);
}

TEST(Theme, PackagedFacesAreFoundAndMonospacedStaysFixedPitch)
{
    for (auto design : {theme::FontDesign::standard, theme::FontDesign::monospaced, theme::FontDesign::rounded}) {
        const QFont f = theme::font(12, QFont::DemiBold, design);
        EXPECT_EQ(QFontInfo(f).family(), theme::preferredFamily(design))
            << "font package missing: run scripts/install-deps";
        EXPECT_EQ(QFontInfo(f).pixelSize(), 12);
    }
    EXPECT_TRUE(QFontInfo(theme::monospaced(10)).fixedPitch());
    const QFont tracked = theme::monospaced(10, QFont::Bold, 1.2);
    EXPECT_NEAR(tracked.letterSpacing(), 1.2, 0.02);
}
