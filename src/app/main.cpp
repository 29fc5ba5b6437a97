#include <QApplication>
#include <QLabel>

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QLabel window(QStringLiteral("Corvane"));
    window.setMinimumSize(1080, 680);
    window.show();
    return app.exec();
}
