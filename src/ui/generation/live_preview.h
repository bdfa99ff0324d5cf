#pragma once

#include <QImage>
#include <QString>
#include <QWidget>

namespace lumivesper::ui {

// The newest picture of a generation, large and whole, with the name of its phase over it.
// Before the first picture it shows what will appear there.
class LivePreview final : public QWidget {
    Q_OBJECT

public:
    explicit LivePreview(QWidget* parent = nullptr);

    void setPicture(const QImage& picture, const QString& caption);
    void clear();
    const QImage& picture() const { return picture_; }
    const QString& caption() const { return caption_; }

    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override { return width * 9 / 16; }
    QSize sizeHint() const override { return {512, 288}; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QImage picture_;
    QString caption_;
};

} // namespace lumivesper::ui
