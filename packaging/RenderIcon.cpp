// corvane-render-icon SVG SIZE OUTPUT.png
//
// Renders the app icon at one size for the icon theme and the macOS bundle,
// so the repository keeps only the SVG. Runs at build time, headless.

#include <QCoreApplication>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>

#include <cstdio>

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    bool sizeIsNumber = false;
    const int size = arguments.size() == 4 ? arguments[2].toInt(&sizeIsNumber) : 0;
    if (!sizeIsNumber || size <= 0) {
        std::fputs("usage: corvane-render-icon SVG SIZE OUTPUT.png\n", stderr);
        return 2;
    }
    QSvgRenderer renderer(arguments[1]);
    if (!renderer.isValid()) {
        std::fprintf(stderr, "corvane-render-icon: cannot read %s\n", qPrintable(arguments[1]));
        return 1;
    }
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    {
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        renderer.render(&painter, QRectF(0, 0, size, size));
    }
    if (!image.save(arguments[3], "PNG")) {
        std::fprintf(stderr, "corvane-render-icon: cannot write %s\n", qPrintable(arguments[3]));
        return 1;
    }
    return 0;
}
