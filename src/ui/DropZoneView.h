#pragma once

#include <functional>

#include <QPointer>
#include <QStringList>
#include <QWidget>

#include "engine/CompressionSettings.h"
#include "session/CompressionState.h"

class QPushButton;

/**
 * The drop-zone panel's content: a painted dark card with a header (icon, name, settings line),
 * a body that follows the batch state (drop prompt, progress or result) and a foot with
 * "Settings..." and "Quit". Accepts drags of image files and hands the accepted paths on.
 *
 * The layout is measured from the bottom-left corner with y upwards (as the design is drawn);
 * painting converts each rectangle with y' = H - y - h.
 */
class DropZoneView final : public QWidget
{
    Q_OBJECT

public:
    enum class Body
    {
        None,
        DropPrompt,
        Progress,
        Result
    };

    explicit DropZoneView(QWidget* parent = nullptr);

    /// The state the view draws; setting it requests a redraw. Not owned.
    void setCompressionState(CompressionState* state);
    CompressionState* compressionState() const { return m_compressionState; }
    void setOnFiles(std::function<void(const QStringList&)> onFiles) { m_onFiles = std::move(onFiles); }
    void setOnSettings(std::function<void()> onSettings) { m_onSettings = std::move(onSettings); }
    void setOnQuit(std::function<void()> onQuit) { m_onQuit = std::move(onQuit); }

    /// A drag holding at least one acceptable file is over the view.
    bool isTargeted() const { return m_isTargeted; }
    /// Marks the whole view for repainting.
    void refresh() { update(); }

    QPushButton* settingsButton() const { return m_settingsButton; }
    QPushButton* quitButton() const { return m_quitButton; }

    /// "WEBP · ≤2048px · ≤1 MB": the format, then the edge and size limits when they are on.
    static QString settingsSummary(const CompressionSettings& settings);
    /// "Optimizing 1 image...", "Optimizing 12 images...".
    static QString countLine(qint64 total);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;

private:
    /// The body a paint draws now.
    Body body() const;
    QPushButton* makeButton(const QString& title, Qt::Alignment alignment);
    void didClickSettings();
    void didClickQuit();
    QRectF toWidget(const QRectF& rect) const;
    void drawPrompt(QPainter& painter) const;
    void drawProgress(QPainter& painter) const;
    void drawResult(QPainter& painter) const;
    void drawSymbol(QPainter& painter, const QString& name, const QRectF& rect, const QColor& color) const;
    QRectF promptArea() const;

    std::function<void(const QStringList&)> m_onFiles;
    std::function<void()> m_onSettings;
    std::function<void()> m_onQuit;
    QPointer<CompressionState> m_compressionState;
    bool m_isTargeted = false;
    QPushButton* m_settingsButton = nullptr;
    QPushButton* m_quitButton = nullptr;
    QPoint m_dragOffset;
    bool m_movingByHand = false;
};
