#include "ui/SettingsView.h"

#include <utility>

#include <QCheckBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFrame>
#include <QHBoxLayout>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSvgRenderer>
#include <QVBoxLayout>

#include "engine/AppGroupDefaults.h"
#include "engine/OutputFormat.h"
#include "engine/OutputLocation.h"
#include "platform/FolderBookmark.h"
#include "ui/BusyIndicator.h"
#include "ui/ElidedLabel.h"
#include "ui/RadioRow.h"

namespace {

using Keys = AppGroupDefaults::Keys;

constexpr int kIndent = 20;
constexpr int kDividerPadding = 8;
constexpr int kUnitSpacing = 6;
const QColor kWarningRed(0xd9, 0x2d, 0x20);
const QColor kWarningOrange(0xe0, 0x74, 0x00);

QFont captionFont(const QFont& base)
{
    QFont f = base;
    f.setPointSizeF(base.pointSizeF() * 0.85);
    return f;
}

void setTextColor(QWidget* w, const QColor& color)
{
    QPalette pal = w->palette();
    pal.setColor(QPalette::WindowText, color);
    w->setPalette(pal);
}

QColor secondaryColor(const QWidget* w)
{
    QColor c = w->palette().color(QPalette::WindowText);
    c.setAlphaF(0.6);
    return c;
}

QLabel* headline(const QString& text)
{
    auto* label = new QLabel(text);
    QFont f = label->font();
    f.setBold(true);
    label->setFont(f);
    return label;
}

QLabel* caption(const QString& text)
{
    auto* label = new QLabel(text);
    label->setFont(captionFont(label->font()));
    label->setWordWrap(true);
    setTextColor(label, secondaryColor(label));
    return label;
}

QWidget* indented(QWidget* content)
{
    auto* box = new QWidget;
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(kIndent, 0, 0, 0);
    layout->addWidget(content);
    return box;
}

QWidget* column(int spacing, std::initializer_list<QWidget*> children)
{
    auto* box = new QWidget;
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(spacing);
    for (QWidget* child : children)
        layout->addWidget(child);
    return box;
}

QWidget* section(const QString& title, int spacing)
{
    auto* box = new QWidget;
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(spacing);
    layout->addWidget(headline(title));
    return box;
}

void add(QWidget* sectionBox, QWidget* child, Qt::Alignment alignment = Qt::AlignLeft)
{
    static_cast<QVBoxLayout*>(sectionBox->layout())->addWidget(child, 0, alignment);
}

QWidget* divider()
{
    auto* box = new QWidget;
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, kDividerPadding, 0, kDividerPadding);
    auto* line = new QFrame;
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    layout->addWidget(line);
    return box;
}

QPixmap tintedSymbol(const QString& resource, int size, const QColor& color, qreal dpr)
{
    QSvgRenderer renderer(resource);
    QImage image(QSize(size, size) * dpr, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    {
        QPainter p(&image);
        renderer.render(&p);
        p.setCompositionMode(QPainter::CompositionMode_SourceIn);
        p.fillRect(image.rect(), color);
    }
    QPixmap pixmap = QPixmap::fromImage(image);
    pixmap.setDevicePixelRatio(dpr);
    return pixmap;
}

QWidget* symbolLabel(const QString& resource, const QString& text, const QWidget* style)
{
    auto* box = new QWidget;
    auto* row = new QHBoxLayout(box);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(kUnitSpacing);
    auto* icon = new QLabel;
    const int size = style->fontMetrics().height();
    icon->setPixmap(tintedSymbol(resource, size, style->palette().color(QPalette::WindowText),
                                 style->devicePixelRatioF()));
    row->addWidget(icon);
    row->addWidget(new QLabel(text));
    row->addStretch();
    return box;
}

std::optional<qint64> parseInteger(const QString& text)
{
    bool ok = false;
    const qint64 value = text.trimmed().toLongLong(&ok);
    return ok ? std::optional<qint64>(value) : std::nullopt;
}

} // namespace

SettingsView::SettingsView(UpdateControl* updater, LaunchAtLoginHooks launchAtLogin, BundleInfo bundle,
                           FolderChooser chooseFolder, QWidget* parent)
    : QWidget(parent), m_updater(updater), m_launchAtLogin(std::move(launchAtLogin)),
      m_bundle(std::move(bundle)), m_chooseFolder(std::move(chooseFolder))
{
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 12, 16, 16);
    layout->setSpacing(0);
    const QList<QWidget*> sections{buildOutputFormat(),    buildCompression(),   buildResize(),
                                   buildOutputLocation(),  buildNotifications(), buildGeneral(),
                                   buildSupportedFormats()};
    for (QWidget* s : sections) {
        layout->addWidget(s);
        layout->addWidget(divider());
    }
    auto* version =
        caption(QStringLiteral("Brevona v") + m_bundle.shortVersion().value_or(QStringLiteral("1.0.0")));
    version->setObjectName(QStringLiteral("versionLine"));
    layout->addWidget(version);
    layout->addWidget(divider());
    layout->addWidget(buildUpdates());
    layout->addStretch();

    updateVisibility();
    updateFolderRow();
    updateCheckButton();
}

QString SettingsView::runFolderDialog(QWidget* parent)
{
    QFileDialog dialog(parent);
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly);
    dialog.setLabelText(QFileDialog::Accept, QStringLiteral("Select"));
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return {};
    return dialog.selectedFiles().constFirst();
}

void SettingsView::store(const QString& key, const QVariant& value)
{
    Defaults suite = AppGroupDefaults::open();
    suite.set(key, value);
    suite.sync();
}

QCheckBox* SettingsView::boundToggle(const QString& text, const QString& key, bool fallback)
{
    auto* box = new QCheckBox(text);
    onReload([box, key, fallback] {
        const Defaults suite = AppGroupDefaults::open();
        const QSignalBlocker quiet(box);
        box->setChecked(suite.object(key).isValid() ? suite.boolean(key) : fallback);
    });
    connect(box, &QCheckBox::toggled, this, [this, key](bool on) {
        store(key, on);
        updateVisibility();
    });
    return box;
}

QLineEdit* SettingsView::boundNumberField(const QString& key, qint64 fallback, int width)
{
    auto* field = new QLineEdit;
    field->setFixedWidth(width);
    const auto showStored = [field, key, fallback] {
        const Defaults suite = AppGroupDefaults::open();
        field->setText(QString::number(suite.object(key).isValid() ? suite.integer(key) : fallback));
    };
    onReload(showStored);
    // Written when editing ends (Return, or focus leaving), and only a whole integer: partial
    // text such as the "1" of "1,000" is never stored. Anything else shows the stored number again.
    connect(field, &QLineEdit::editingFinished, this, [this, field, key, showStored] {
        if (const auto value = parseInteger(field->text()))
            store(key, *value);
        showStored();
    });
    return field;
}

namespace {
QWidget* numberRow(QLineEdit* field, const QString& unit)
{
    auto* row = new QWidget;
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(kUnitSpacing);
    layout->addWidget(field);
    layout->addWidget(new QLabel(unit));
    layout->addStretch();
    return row;
}
} // namespace

QWidget* SettingsView::buildOutputFormat()
{
    QWidget* box = section(QStringLiteral("Output Format"), 8);
    for (const OutputFormat format : OutputFormats::all) {
        const QString raw = OutputFormats::rawValue(format);
        auto* row = new RadioRow(OutputFormats::title(format), [this, raw] {
            store(Keys::outputFormat, raw);
            for (const auto& [rowRaw, r] : std::as_const(m_formatRows))
                r->setSelected(rowRaw == raw);
        });
        row->setObjectName(QStringLiteral("format_") + raw);
        m_formatRows.append({raw, row});
        add(box, row);
    }
    onReload([this] {
        const QString current =
            AppGroupDefaults::open().string(Keys::outputFormat).value_or(QStringLiteral("jpeg"));
        for (const auto& [raw, row] : std::as_const(m_formatRows))
            row->setSelected(raw == current);
    });
    return box;
}

QWidget* SettingsView::buildCompression()
{
    QWidget* box = section(QStringLiteral("Compression"), 10);

    m_limitSize = boundToggle(QStringLiteral("Limit output file size"), Keys::limitOutputFileSize, false);
    add(box, m_limitSize);
    m_sizeRow = indented(column(
        4, {numberRow(boundNumberField(Keys::maxFileSizeKB, 500, 70), QStringLiteral("KB")),
            caption(QStringLiteral(
                "Output will be at or under this size. If needed, the image is also scaled down to fit."))}));
    m_sizeRow->setObjectName(QStringLiteral("maxFileSizeRow"));
    add(box, m_sizeRow, {});

    m_requireSaving = boundToggle(QStringLiteral("Keep original if not smaller by at least"),
                                  Keys::requireMinSavingPercent, false);
    add(box, m_requireSaving);
    m_savingRow = indented(
        column(4, {numberRow(boundNumberField(Keys::minSavingPercent, 20, 50), QStringLiteral("%")),
                   caption(QStringLiteral("Useful when source files are already well-compressed."))}));
    m_savingRow->setObjectName(QStringLiteral("minSavingRow"));
    add(box, m_savingRow, {});

    m_defaultQualityLine =
        caption(QStringLiteral("Default: ~82% quality — visually identical, significantly smaller."));
    m_defaultQualityLine->setObjectName(QStringLiteral("defaultQualityLine"));
    add(box, m_defaultQualityLine, {});
    return box;
}

QWidget* SettingsView::buildResize()
{
    QWidget* box = section(QStringLiteral("Resize"), 8);
    m_limitEdge = boundToggle(QStringLiteral("Limit longest edge"), Keys::limitLongestEdge, false);
    add(box, m_limitEdge);
    m_edgeRow =
        indented(column(4, {numberRow(boundNumberField(Keys::longestEdgePx, 2048, 70), QStringLiteral("px")),
                            caption(QStringLiteral("Smaller images are left untouched."))}));
    m_edgeRow->setObjectName(QStringLiteral("longestEdgeRow"));
    add(box, m_edgeRow, {});
    return box;
}

QWidget* SettingsView::buildOutputLocation()
{
    QWidget* box = section(QStringLiteral("Output Location"), 8);
    const auto select = [this](OutputLocation location) {
        store(Keys::outputLocation, OutputLocations::rawValue(location));
        updateVisibility();
    };
    m_sameFolderRow = new RadioRow(QStringLiteral("Same folder as original"),
                                   [select] { select(OutputLocation::SameFolder); });
    m_sameFolderRow->setObjectName(QStringLiteral("location_sameFolder"));
    m_customFolderRow =
        new RadioRow(QStringLiteral("Custom folder"), [select] { select(OutputLocation::CustomFolder); });
    m_customFolderRow->setObjectName(QStringLiteral("location_customFolder"));
    add(box, m_sameFolderRow);
    add(box, m_customFolderRow);

    // Folder row: the path (or "Not set") and the button that runs the chooser.
    auto* folderRow = new QWidget;
    auto* folderLayout = new QHBoxLayout(folderRow);
    folderLayout->setContentsMargins(0, 0, 0, 0);
    m_folderPath = new ElidedLabel;
    m_folderPath->setObjectName(QStringLiteral("folderPath"));
    m_folderPath->setFont(captionFont(m_folderPath->font()));
    auto* change = new QPushButton(QStringLiteral("Change..."));
    change->setObjectName(QStringLiteral("changeFolder"));
    change->setFont(captionFont(change->font()));
    connect(change, &QPushButton::clicked, this, &SettingsView::chooseFolder);
    folderLayout->addWidget(m_folderPath);
    folderLayout->addWidget(change);
    folderLayout->addStretch();

    m_folderMissing = new QLabel(QStringLiteral("Folder not found – using original location."));
    m_folderMissing->setObjectName(QStringLiteral("folderMissing"));
    m_folderMissing->setFont(captionFont(m_folderMissing->font()));
    setTextColor(m_folderMissing, kWarningOrange);

    auto* customBlock = new QWidget;
    auto* customLayout = new QVBoxLayout(customBlock);
    customLayout->setContentsMargins(0, 0, 0, 0);
    customLayout->setSpacing(4);
    customLayout->addWidget(folderRow);
    customLayout->addWidget(m_folderMissing);
    m_customFolderBlock = indented(customBlock);
    m_customFolderBlock->setObjectName(QStringLiteral("customFolderBlock"));
    add(box, m_customFolderBlock, {});

    m_sameFolderCaption = caption(QStringLiteral("Optimized files are saved next to the originals."));
    m_sameFolderCaption->setObjectName(QStringLiteral("sameFolderCaption"));
    add(box, m_sameFolderCaption, {});

    auto* suffixRow = new QWidget;
    auto* suffixLayout = new QHBoxLayout(suffixRow);
    suffixLayout->setContentsMargins(0, 4, 0, 0);
    suffixLayout->addWidget(new QLabel(QStringLiteral("Suffix")));
    auto* suffix = new QLineEdit;
    suffix->setObjectName(QStringLiteral("suffixField"));
    suffix->setPlaceholderText(QStringLiteral("-web"));
    suffix->setFixedWidth(100);
    onReload([suffix] {
        suffix->setText(AppGroupDefaults::open().string(Keys::suffix).value_or(QStringLiteral("-web")));
    });
    connect(suffix, &QLineEdit::textEdited, this, [this](const QString& text) { store(Keys::suffix, text); });
    suffixLayout->addWidget(suffix);
    suffixLayout->addStretch();
    add(box, suffixRow, {});
    return box;
}

QWidget* SettingsView::buildNotifications()
{
    QWidget* box = section(QStringLiteral("Notifications"), 8);
    add(box,
        boundToggle(QStringLiteral("Show notifications after compression"), Keys::showNotifications, true));
    return box;
}

QWidget* SettingsView::buildGeneral()
{
    QWidget* box = section(QStringLiteral("General"), 8);
    auto* toggle = new QCheckBox(QStringLiteral("Launch at Login"));
    toggle->setObjectName(QStringLiteral("launchAtLogin"));
    onReload([this, toggle] {
        const QSignalBlocker quiet(toggle);
        toggle->setChecked(m_launchAtLogin.isEnabled && m_launchAtLogin.isEnabled());
    });
    connect(toggle, &QCheckBox::toggled, this, [this](bool on) {
        if (m_launchAtLogin.setEnabled)
            m_launchAtLogin.setEnabled(on);
    });
    add(box, toggle);
    return box;
}

QWidget* SettingsView::buildSupportedFormats()
{
    QWidget* box = section(QStringLiteral("Supported Input Formats"), 8);
    add(box, new QLabel(QStringLiteral("Brevona can optimize any image your computer can read:")));
    add(box,
        column(2,
               {symbolLabel(QStringLiteral(":/icons/camera.svg"), QStringLiteral("Photos"), this),
                caption(QStringLiteral("JPEG · PNG · HEIC · HEIF · WebP · AVIF · TIFF · BMP · GIF · PDF"))}),
        {});
    add(box,
        column(2, {symbolLabel(QStringLiteral(":/icons/camera.aperture.svg"), QStringLiteral("Camera RAW"),
                               this),
                   caption(QStringLiteral("RAW · CR2 · ARW · NEF · DNG and more"))}),
        {});
    add(box, caption(QStringLiteral("Output formats: JPEG · PNG · WebP · AVIF")), {});
    return box;
}

QWidget* SettingsView::buildUpdates()
{
    QWidget* box = section(QStringLiteral("Updates"), 8);
    add(box, caption(QStringLiteral("Automatically checks once a day.")), {});

    auto* row = new QWidget;
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    m_checkButton = new QPushButton;
    m_checkButton->setObjectName(QStringLiteral("checkForUpdates"));
    connect(m_checkButton, &QPushButton::clicked, this, [this] {
        if (m_updater)
            m_updater->checkForUpdates();
    });
    // A 0.7 scale of the platform's small spinner.
    m_busy = new BusyIndicator(qRound(fontMetrics().height() * 0.7));
    m_busy->setObjectName(QStringLiteral("checkingIndicator"));
    layout->addWidget(m_checkButton);
    layout->addWidget(m_busy);
    layout->addStretch();
    add(box, row, {});

    if (m_updater)
        connect(m_updater, &UpdateControl::isCheckingChanged, this, &SettingsView::updateCheckButton);
    return box;
}

void SettingsView::updateVisibility()
{
    const Defaults suite = AppGroupDefaults::open();
    const bool limitSize = m_limitSize->isChecked();
    const bool requireSaving = m_requireSaving->isChecked();
    m_sizeRow->setVisible(limitSize);
    m_savingRow->setVisible(requireSaving);
    m_defaultQualityLine->setVisible(!limitSize && !requireSaving);
    m_edgeRow->setVisible(m_limitEdge->isChecked());

    const QString location = suite.string(Keys::outputLocation).value_or(QStringLiteral("sameFolder"));
    const bool same = location == QLatin1String("sameFolder");
    const bool custom = location == QLatin1String("customFolder");
    m_sameFolderRow->setSelected(same);
    m_customFolderRow->setSelected(custom);
    m_customFolderBlock->setVisible(custom);
    m_sameFolderCaption->setVisible(same);
}

void SettingsView::updateFolderRow()
{
    if (m_customFolderPath) {
        m_folderPath->setFullText(*m_customFolderPath);
        setTextColor(m_folderPath, secondaryColor(this));
    } else {
        m_folderPath->setFullText(QStringLiteral("Not set"));
        setTextColor(m_folderPath, kWarningRed);
    }
    m_folderMissing->setVisible(m_customFolderMissing);
}

void SettingsView::updateCheckButton()
{
    const bool checking = m_updater && m_updater->isChecking();
    m_checkButton->setText(checking ? QStringLiteral("Checking…") : QStringLiteral("Check for Updates"));
    m_busy->setVisible(checking);
}

void SettingsView::refreshCustomFolder()
{
    const std::optional<QByteArray> data = AppGroupDefaults::open().data(Keys::customFolderBookmark);
    m_customFolderPath = data ? FolderBookmark::resolve(*data) : std::nullopt;
    m_customFolderMissing = m_customFolderPath && !QFileInfo::exists(*m_customFolderPath);
    updateFolderRow();
}

void SettingsView::chooseFolder()
{
    if (!m_chooseFolder)
        return;
    const QString chosen = m_chooseFolder(window());
    if (chosen.isEmpty())
        return;
    const std::optional<QByteArray> bookmark = FolderBookmark::create(chosen);
    if (!bookmark)
        return;
    store(Keys::customFolderBookmark, *bookmark);
    m_customFolderPath = chosen;
    m_customFolderMissing = false;
    updateFolderRow();
}

void SettingsView::onReload(std::function<void()> reload)
{
    reload();
    m_reloads.push_back(std::move(reload));
}

void SettingsView::reloadFromSuite()
{
    for (const auto& reload : m_reloads)
        reload();
    updateVisibility();
    refreshCustomFolder();
}

void SettingsView::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    reloadFromSuite();
}
