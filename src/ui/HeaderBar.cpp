#include "HeaderBar.h"

#include "CountChip.h"
#include "HeaderMenuButton.h"
#include "LogoTile.h"
#include "PickerBox.h"
#include "SearchField.h"
#include "SeverityFilterMode.h"
#include "StatusDot.h"
#include "StoreRefresh.h"
#include "Theme.h"

#include <QActionGroup>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QPainter>
#include <QSignalBlocker>
#include <QVBoxLayout>

namespace corvane {

namespace {

CountChip::Style headerCounterStyle(theme::Symbol symbol, const QColor& color, const QString& caption)
{
    CountChip::Style style;
    style.symbol = symbol;
    style.color = color;
    style.font = theme::monospaced(10, QFont::DemiBold);
    style.symbolSize = 11;
    style.spacing = 6;
    style.caption = caption;
    style.capsule = true;
    style.horizontalPadding = 9;
    style.height = 28;
    return style;
}

} // namespace

HeaderBar::HeaderBar(BuildStore& store, QWidget* parent)
    : QWidget(parent),
      m_store(store),
      m_refresh(new StoreRefresh(store, *this, [this](const auto& changed) { refresh(changed); })),
      m_statusDot(new StatusDot(6, this)),
      m_statusText(new QLabel(this)),
      m_counters(new QWidget(this)),
      m_newCounter(new CountChip(headerCounterStyle(theme::Symbol::sparkles, theme::cyan(), QStringLiteral("NEW")),
                                 m_counters)),
      m_fixedCounter(new CountChip(
          headerCounterStyle(theme::Symbol::checkmark, theme::green(), QStringLiteral("FIXED")), m_counters)),
      m_focusButton(new HeaderMenuButton(this)),
      m_focusMenu(new QMenu(this)),
      m_warningsPicker(new PickerBox(110, QStringLiteral("Warnings"), this)),
      m_severityPicker(new PickerBox(175, QStringLiteral("Severity"), this)),
      m_searchField(new SearchField(this)),
      m_optionsButton(new HeaderMenuButton(this)),
      m_optionsMenu(new QMenu(this))
{
    setObjectName(QStringLiteral("headerBar"));
    m_statusText->setObjectName(QStringLiteral("statusText"));
    m_counters->setObjectName(QStringLiteral("headerCounters"));
    m_newCounter->setObjectName(QStringLiteral("headerNewCounter"));
    m_fixedCounter->setObjectName(QStringLiteral("headerFixedCounter"));
    m_focusButton->setObjectName(QStringLiteral("projectFocusButton"));
    m_focusMenu->setObjectName(QStringLiteral("projectFocusMenu"));
    m_warningsPicker->setObjectName(QStringLiteral("warningsPicker"));
    m_severityPicker->setObjectName(QStringLiteral("severityPicker"));
    m_searchField->setObjectName(QStringLiteral("searchField"));
    m_optionsButton->setObjectName(QStringLiteral("optionsButton"));
    m_optionsMenu->setObjectName(QStringLiteral("optionsMenu"));

    auto* counterLayout = new QHBoxLayout(m_counters);
    counterLayout->setContentsMargins(0, 0, 0, 0);
    counterLayout->setSpacing(8);
    counterLayout->addWidget(m_newCounter);
    counterLayout->addWidget(m_fixedCounter);

    m_focusButton->setAccessibleName(QStringLiteral("Project"));
    m_focusButton->setMenu(m_focusMenu);
    m_focusMenu->setAccessibleName(QStringLiteral("Project"));
    connect(m_focusMenu, &QMenu::aboutToShow, this, &HeaderBar::rebuildFocusMenu);

    for (auto mode : BuildStore::allWarningViewModes)
        m_warningsPicker->addItem(BuildStore::title(mode), int(mode));
    connect(m_warningsPicker, &QComboBox::activated, this, [this](int index) {
        m_store.setWarningViewMode(BuildStore::WarningViewMode(m_warningsPicker->itemData(index).toInt()));
    });

    for (auto mode : allSeverityFilterModes)
        m_severityPicker->addItem(title(mode), int(mode));
    connect(m_severityPicker, &QComboBox::activated, this, [this](int index) {
        m_store.setSeverityFilter(severities(SeverityFilterMode(m_severityPicker->itemData(index).toInt())));
    });

    m_searchField->setAccessibleName(QStringLiteral("Filter diagnostics"));
    connect(m_searchField, &QLineEdit::textEdited, this, [this](const QString& text) { m_store.setSearchText(text); });

    HeaderMenuButton::Content options;
    options.leadingSymbol = theme::Symbol::ellipsis;
    options.leadingSize = 15;
    options.horizontalPadding = 0;
    options.foreground = theme::primaryText();
    options.outline = theme::edge();
    m_optionsButton->setContent(options);
    m_optionsButton->setFixedSize(34, 30);
    m_optionsButton->setAccessibleName(QStringLiteral("Options"));
    m_optionsButton->setMenu(m_optionsMenu);
    m_optionsMenu->setAccessibleName(QStringLiteral("Options"));
    buildOptionsMenu();

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(18, 13, 18, 13);
    layout->setSpacing(16);
    layout->addWidget(makeBrand());
    layout->addStretch(1);
    layout->addWidget(m_counters);
    layout->addWidget(m_focusButton);
    layout->addWidget(m_warningsPicker);
    layout->addWidget(m_severityPicker);
    layout->addWidget(m_searchField);
    layout->addWidget(m_optionsButton);

    // Keyboard order follows the bar from left to right.
    setTabOrder(m_focusButton, m_warningsPicker);
    setTabOrder(m_warningsPicker, m_severityPicker);
    setTabOrder(m_severityPicker, m_searchField);
    setTabOrder(m_searchField, m_optionsButton);

    refresh(StoreRefresh::allFields());
}

QWidget* HeaderBar::makeBrand()
{
    auto* brand = new QWidget(this);
    auto* wordmark = new QLabel(QStringLiteral("CORVANE"), brand);
    wordmark->setObjectName(QStringLiteral("wordmark"));
    wordmark->setFont(theme::monospaced(17, QFont::Bold, 1.2));
    theme::setForeground(*wordmark, Qt::white);
    m_statusText->setFont(theme::monospaced(10, QFont::DemiBold));

    auto* statusRow = new QHBoxLayout;
    statusRow->setContentsMargins(0, 0, 0, 0);
    statusRow->setSpacing(7);
    statusRow->addWidget(m_statusDot, 0, Qt::AlignVCenter);
    statusRow->addWidget(m_statusText);
    statusRow->addStretch(1);

    auto* words = new QVBoxLayout;
    words->setContentsMargins(0, 0, 0, 0);
    words->setSpacing(4);
    words->addWidget(wordmark);
    words->addLayout(statusRow);

    auto* layout = new QHBoxLayout(brand);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(12);
    layout->addWidget(new LogoTile(brand));
    layout->addLayout(words);
    return brand;
}

void HeaderBar::buildOptionsMenu()
{
    m_showNoiseAction = m_optionsMenu->addAction(QStringLiteral("Show Build-System Notes"));
    m_showNoiseAction->setCheckable(true);
    connect(m_showNoiseAction, &QAction::triggered, this, [this](bool checked) { m_store.setShowBuildNoise(checked); });
    m_optionsMenu->addSeparator();
    connect(m_optionsMenu->addAction(QStringLiteral("Import Plain-Text Log") + QChar(0x2026)), &QAction::triggered,
            this, [this] { m_store.importPlainTextLog(); });
    connect(m_optionsMenu->addAction(QStringLiteral("Load Sample Diagnostics")), &QAction::triggered, this,
            [this] { m_store.loadSampleDiagnostics(); });
    m_optionsMenu->addSeparator();
    connect(m_optionsMenu->addAction(QStringLiteral("Restart Xcode Watcher")), &QAction::triggered, this,
            [this] { m_store.restartWatcher(); });
    m_optionsMenu->addSeparator();
    connect(m_optionsMenu->addAction(QStringLiteral("Clear Build History")), &QAction::triggered, this,
            [this] { m_store.clearHistory(); });
}

void HeaderBar::rebuildFocusMenu()
{
    m_focusMenu->clear();
    const std::optional<QString> focused = m_store.focusedProjectName();
    auto* group = new QActionGroup(m_focusMenu);
    auto addItem = [&](const QString& text, const std::optional<QString>& project) {
        QAction* action = m_focusMenu->addAction(text);
        action->setCheckable(true);
        action->setChecked(project == focused);
        action->setActionGroup(group);
        connect(action, &QAction::triggered, this, [this, project] { m_store.setFocusedProject(project); });
    };
    addItem(QStringLiteral("All Projects"), std::nullopt);
    const QStringList names = m_store.projectNames();
    if (!names.isEmpty()) {
        m_focusMenu->addSeparator();
        for (const QString& name : names)
            addItem(name, name);
    }
}

void HeaderBar::refresh(const QSet<BuildStore::Field>& changed)
{
    using Field = BuildStore::Field;
    if (changed.contains(Field::captureState)) {
        const QColor statusColor = captureStatusColor(m_store.captureState());
        m_statusDot->setColor(statusColor);
        m_statusText->setText(m_store.statusText());
        theme::setForeground(*m_statusText, statusColor);
    }

    if (StoreRefresh::touches(changed, {Field::sessions, Field::activeSessionID, Field::showBuildNoise})) {
        const BuildComparison comparison = m_store.activeComparison();
        m_counters->setVisible(comparison.hasBaseline);
        m_newCounter->setCount(comparison.newDiagnosticIDs.size());
        m_fixedCounter->setCount(m_store.visibleFixedDiagnostics().size());
    }

    if (StoreRefresh::touches(changed, {Field::sessions, Field::focusedProjectName}))
        refreshFocus();
    if (changed.contains(Field::warningViewMode)) {
        const QSignalBlocker blocker(m_warningsPicker);
        m_warningsPicker->setCurrentIndex(m_warningsPicker->findData(int(m_store.warningViewMode())));
    }
    if (changed.contains(Field::severityFilter)) {
        const QSignalBlocker blocker(m_severityPicker);
        m_severityPicker->setCurrentIndex(
            m_severityPicker->findData(int(severityFilterMode(m_store.severityFilter()))));
    }
    // Only when the store's text differs (a cleared history, for instance), so
    // typing keeps its cursor and undo history.
    if (changed.contains(Field::searchText) && m_searchField->text() != m_store.searchText())
        m_searchField->setText(m_store.searchText());
    if (changed.contains(Field::showBuildNoise))
        m_showNoiseAction->setChecked(m_store.showBuildNoise());
}

void HeaderBar::refreshFocus()
{
    const std::optional<QString> focused = m_store.focusedProjectName();
    HeaderMenuButton::Content focus;
    focus.leadingSymbol = theme::Symbol::scope;
    focus.trailingSymbol = theme::Symbol::chevronUpChevronDown;
    focus.trailingSize = 8;
    focus.font = theme::monospaced(10, QFont::DemiBold);
    focus.foreground = focused ? theme::cyan() : theme::secondaryText();
    focus.outline = focused ? theme::withOpacity(theme::cyan(), 0.28) : theme::edge();
    m_focusButton->setContent(focus);
    m_focusButton->setText(focused ? focused->toUpper() : QStringLiteral("ALL PROJECTS"));
    // An open menu keeps its items; it is rebuilt when it opens next.
    if (!m_focusMenu->isVisible())
        rebuildFocusMenu();
}

QColor HeaderBar::captureStatusColor(const BuildStore::CaptureState& state)
{
    using Kind = BuildStore::CaptureState::Kind;
    switch (state.kind) {
    case Kind::watching:
        return theme::green();
    case Kind::buildDetected:
    case Kind::processing:
        return theme::cyan();
    case Kind::failed:
        return theme::orange();
    case Kind::stopped:
        break;
    }
    return theme::secondaryText();
}

void HeaderBar::focusSearchField()
{
    m_searchField->setFocus(Qt::ShortcutFocusReason);
    m_searchField->selectAll();
}

void HeaderBar::addWindowControls(QWidget* controls)
{
    controls->setParent(this);
    layout()->addWidget(controls);
}

void HeaderBar::setLeadingInset(int inset)
{
    QMargins margins = layout()->contentsMargins();
    margins.setLeft(inset);
    layout()->setContentsMargins(margins);
}

void HeaderBar::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), theme::barShade());
}

} // namespace corvane
