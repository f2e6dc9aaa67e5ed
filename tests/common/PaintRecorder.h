#pragma once

#include <QColor>
#include <QPaintDevice>
#include <QPaintEngine>
#include <QStringList>
#include <QWidget>

/// A paint device that draws nothing and keeps the lines of text a widget (and its children)
/// paints, in painting order, with the pen of each. Pieces drawn back to back on one baseline (a
/// fallback font's glyphs) make one line.
class PaintRecorder final : public QPaintDevice, QPaintEngine
{
public:
    struct Line
    {
        QString text;
        QColor color;
    };

    static QList<Line> lines(QWidget& widget)
    {
        PaintRecorder device(widget.size());
        widget.render(static_cast<QPaintDevice*>(&device));
        return device.m_lines;
    }
    static QStringList texts(QWidget& widget)
    {
        QStringList out;
        for (const Line& line : lines(widget))
            out << line.text;
        return out;
    }

    QPaintEngine* paintEngine() const override { return const_cast<PaintRecorder*>(this); }
    bool begin(QPaintDevice*) override { return true; }
    bool end() override { return true; }
    Type type() const override { return User; }
    void updateState(const QPaintEngineState& state) override
    {
        if (state.state() & DirtyPen)
            m_pen = state.pen().color();
    }
    void drawTextItem(const QPointF& at, const QTextItem& item) override
    {
        if (!m_lines.isEmpty() && qAbs(at.y() - m_baseline) < 0.5 && qAbs(at.x() - m_end) < 1)
            m_lines.last().text += item.text();
        else
            m_lines.append({item.text(), m_pen});
        m_baseline = at.y();
        m_end = at.x() + item.width();
    }
    void drawPixmap(const QRectF&, const QPixmap&, const QRectF&) override {}
    void drawImage(const QRectF&, const QImage&, const QRectF&, Qt::ImageConversionFlags) override {}
    void drawPath(const QPainterPath&) override {}
    void drawPolygon(const QPointF*, int, PolygonDrawMode) override {}

protected:
    int metric(PaintDeviceMetric metric) const override
    {
        switch (metric) {
        case PdmWidth:
            return m_size.width();
        case PdmHeight:
            return m_size.height();
        case PdmDpiX:
        case PdmDpiY:
        case PdmPhysicalDpiX:
        case PdmPhysicalDpiY:
            return 96;
        case PdmDepth:
            return 32;
        default:
            return QPaintDevice::metric(metric);
        }
    }

private:
    explicit PaintRecorder(QSize size) : QPaintEngine(AllFeatures), m_size(size) {}

    QSize m_size;
    QList<Line> m_lines;
    QColor m_pen;
    qreal m_baseline = 0;
    qreal m_end = 0;
};
