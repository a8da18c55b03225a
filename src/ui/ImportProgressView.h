#pragma once

#include <QWidget>

// The strip at the bottom of the picker window while an import runs: a pale
// blue-grey fill under a one-pixel grey line along its top edge.
class ImportProgressView : public QWidget
{
    Q_OBJECT
public:
    explicit ImportProgressView(QWidget *parent = nullptr);

protected:
    void paintEvent(QPaintEvent *event) override;
};
