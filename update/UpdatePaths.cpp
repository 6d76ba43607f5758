#include "update/UpdatePaths.h"

#include <QUrl>

QString getLocalPath(const QString& downloadDir, const QString& url)
{
    return downloadDir + QLatin1Char('/') + QUrl(url).fileName();
}
