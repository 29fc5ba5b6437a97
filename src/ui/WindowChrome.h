#pragma once

#include <QObject>
#include <QPoint>
#include <QPointer>

#include <optional>

class QAbstractButton;
class QWindow;

namespace corvane {

class ContentView;

// Makes the header bar the window's title bar. On macOS the system's title
// bar turns transparent over the header and keeps its own window buttons.
// Elsewhere the window is frameless: the header's empty areas move it, a
// double click maximises and restores it, the edges and corners resize it,
// and the header carries close, minimise and maximise buttons. Where the
// platform cannot move or resize a frameless window, the window falls back
// to the desktop's decorations.
class WindowChrome : public QObject {
    Q_OBJECT

public:
    enum class Area { content, move, control, resize };
    struct Hit {
        Area area = Area::content;
        Qt::Edges edges;

        bool operator==(const Hit&) const = default;
    };

    // Width of the band along the window's edges that resizes it, and how
    // far a corner reaches along its two edges.
    static constexpr int resizeBorder = 6;
    static constexpr int cornerReach = 16;

    // Call before the window is first shown.
    explicit WindowChrome(ContentView& window);

    // What a press at this point of the window does.
    Hit hitTest(QPoint windowPos) const;
    bool drawsTitleBar() const { return m_drawsTitleBar; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    bool handleWindowEvent(QEvent* event);
    void toggleMaximised();
    void showWindowState();
    void useSystemDecorations();
    void setEdgeCursor(const std::optional<Qt::CursorShape>& shape, QPoint windowPos);

    ContentView& m_window;
    QPointer<QWindow> m_handle;
    QWidget* m_buttons = nullptr;
    QAbstractButton* m_maximise = nullptr;
    bool m_drawsTitleBar = false;
    // Where a press in the header's empty area began, until it turns into a
    // move or is released.
    std::optional<QPoint> m_pressPos;
    bool m_edgeCursor = false;
};

} // namespace corvane
