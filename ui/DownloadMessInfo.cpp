#include "ui/DownloadMessInfo.h"

#include <QIcon>
#include <QLabel>
#include <QPixmap>
#include <QPushButton>

#include "module/DownloadModule.h"

namespace {

QString text(const char* key)
{
    CDownloadModule* module = GetModule<CDownloadModule>();
    return module ? module->tr(key) : QString::fromLatin1(key);
}

}  // namespace

CDownloadMessInfo::CDownloadMessInfo(CDownloadWidget*, QString title, QString message)
    : QDialog(nullptr)
    , textLabel_(new QLabel(this))
    , iconLabel_(new QLabel(this))
    , okButton_(new QPushButton(this))
    , cancelButton_(new QPushButton(this))
{
    setFixedSize(250, 100);
    setWindowTitle(title);
    setWindowIcon(QIcon(QStringLiteral(":/download.png")));

    iconLabel_->setGeometry(10, 10, 40, 40);
    iconLabel_->setPixmap(QPixmap(QStringLiteral(":/mb_info.png")));

    textLabel_->setGeometry(55, 0, 180, 60);
    textLabel_->setAlignment(Qt::AlignHCenter | Qt::AlignVCenter);
    textLabel_->setWordWrap(true);
    textLabel_->setText(message);

    okButton_->setGeometry(30, 65, 75, 25);
    okButton_->setText(text("C0078"));
    connect(okButton_, &QPushButton::clicked, this, &CDownloadMessInfo::pressedButtonOk);

    cancelButton_->setGeometry(150, 65, 75, 25);
    cancelButton_->setText(text("C0077"));
    connect(cancelButton_, &QPushButton::clicked, this, &CDownloadMessInfo::pressedButtonCancel);
}

int CDownloadMessInfo::start()
{
    result_ = 1;
    exec();
    return result_;
}

void CDownloadMessInfo::pressedButtonOk()
{
    result_ = 0;
    close();
}

void CDownloadMessInfo::pressedButtonCancel()
{
    result_ = 1;
    close();
}
