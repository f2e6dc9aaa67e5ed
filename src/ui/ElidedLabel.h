#pragma once

#include <QLabel>

/// A one-line label that shortens its text in the middle ("/home/…/Exports") to fit its width.
class ElidedLabel final : public QLabel
{
    Q_OBJECT

public:
    explicit ElidedLabel(QWidget* parent = nullptr);

    void setFullText(const QString& text);
    QString fullText() const { return m_fullText; }

    QSize minimumSizeHint() const override;
    QSize sizeHint() const override;

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void updateElision();

    QString m_fullText;
};
