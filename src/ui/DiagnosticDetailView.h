#pragma once

#include "BuildDiagnostic.h"
#include "BuildStore.h"

#include <QColor>
#include <QWidget>

class QLabel;
class QPushButton;
class QTextEdit;

namespace corvane {

class DesktopPlatform;

// One diagnostic in full: severity and status tags, file and location, pin
// and ignore for warnings, the message and the raw compiler output, and the
// action bar to open it in Xcode or copy its texts.
class DiagnosticDetailView : public QWidget {
    Q_OBJECT

public:
    DiagnosticDetailView(BuildStore& store, DesktopPlatform& platform, QColor card, QColor edge,
                         QWidget* parent = nullptr);

    void setDiagnostic(const BuildDiagnostic& diagnostic);
    const BuildDiagnostic& diagnostic() const;

private:
    // Tags and the pin and ignore labels depend on the store, not only on the
    // diagnostic, so they are read again after every store change.
    void refreshStatus();
    void copyCleanError();
    void copyForChatGPT();

    BuildStore& m_store;
    DesktopPlatform& m_platform;
    QColor m_card;
    QColor m_edge;
    BuildDiagnostic m_diagnostic;

    QLabel* m_severitySymbol;
    QLabel* m_severityWord;
    QLabel* m_newTag;
    QLabel* m_pinnedTag;
    QLabel* m_ignoredTag;
    QLabel* m_title;
    QLabel* m_location;
    QWidget* m_warningActions;
    QPushButton* m_pinButton;
    QPushButton* m_ignoreButton;
    QTextEdit* m_message;
    QTextEdit* m_rawText;
    QPushButton* m_openButton;
    QPushButton* m_copyCleanButton;
    QPushButton* m_copyChatGPTButton;
};

} // namespace corvane
