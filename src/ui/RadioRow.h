#pragma once

#include <functional>

#include <QAbstractButton>

/**
 * A flat radio-style row: a circle (filled inside when selected) and a label, 8 pixels apart.
 * Clicking runs the action; the row does not change its own selection, the form decides that
 * from the stored value.
 */
class RadioRow final : public QAbstractButton
{
    Q_OBJECT

public:
    RadioRow(const QString& label, std::function<void()> action, QWidget* parent = nullptr);

    bool isSelected() const { return m_selected; }
    void setSelected(bool selected);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    int indicatorSize() const;

    std::function<void()> m_action;
    bool m_selected = false;
};
