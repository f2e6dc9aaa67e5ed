#pragma once

#include <QVariantAnimation>
#include <QWidget>

/// A small spinning arc for "work in progress"; it spins only while visible.
class BusyIndicator final : public QWidget
{
    Q_OBJECT

public:
    explicit BusyIndicator(int diameter, QWidget* parent = nullptr);

    QSize sizeHint() const override { return {m_diameter, m_diameter}; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    int m_diameter;
    QVariantAnimation m_spin;
};
