#include "net/ServerUrl.h"

#include <QFileInfo>
#include <QUrl>

namespace {

const char kHttp[] = "http://";

bool lacksScheme(const QString& address, ServerUrl::MissingScheme rule)
{
    if (rule == ServerUrl::MissingScheme::UnlessTextStartsWithHttp)
        return !address.startsWith(QLatin1String(kHttp), Qt::CaseInsensitive);
    const QString scheme = QUrl(address).scheme();
    return scheme.isEmpty() || scheme == QLatin1String("file");
}

QString withScheme(const QString& address, ServerUrl::MissingScheme rule)
{
    return lacksScheme(address, rule) ? QLatin1String(kHttp) + address : address;
}

}  // namespace

ServerUrl ServerUrl::fromBytes(const QByteArray& address, const Options& options)
{
    if (options.percentDecode)
        return ServerUrl(QUrl::fromPercentEncoding(address), options);
    return ServerUrl(QLatin1String(address.constData(), address.size()), options);
}

ServerUrl ServerUrl::fromText(const QString& address, const Options& options)
{
    if (options.percentDecode)
        return fromBytes(address.toLocal8Bit(), options);
    return ServerUrl(address, options);
}

ServerUrl::ServerUrl(const QString& address, const Options& options)
    : text_(withScheme(address, options.missingScheme))
{
    const QUrl parsed(text_);
    hostName_ = parsed.host();
    host_ = hostName_;
    takePort(parsed.port(), options);
    const QFileInfo pathInfo(parsed.path());
    folder_ = pathInfo.path();
    fileName_ = pathInfo.fileName();
    // Whatever the scheme, the request goes out as http.
    requestPath_ = QLatin1String(kHttp) + host_ + parsed.path(QUrl::FullyEncoded);
    if (parsed.hasQuery())
        requestPath_ += QLatin1Char('?') + parsed.query(QUrl::FullyEncoded);
}

// An explicit ":0" counts as no port.
void ServerUrl::takePort(int urlPort, const Options& options)
{
    if (!options.usesUrlPort || urlPort <= 0)
        return;
    port_ = quint16(urlPort);
    host_ += QLatin1Char(':') + QString::number(urlPort);
}

QString ServerUrl::folderUrl() const
{
    return QLatin1String(kHttp) + host_ + folder_ + QLatin1Char('/');
}
