// update-publisher: writes an update server tree from a release manifest.
//   update-publisher [--sign SECRET_KEY_FILE [--serial N] [--expires TIME]]
//                    MANIFEST.json OUTPUT-FOLDER
// The output folder must be new or empty. With --sign every list and
// description text gets a minisign signature beside it whose trusted comment
// is "serial=N expires=TIME"; the flags override the manifest's "signature"
// object, and signing needs both. Exit codes: 0 written, 1 usage, 2 the
// manifest or the key was refused (the message names the entry), 3 writing
// failed.
#include <cstdio>

#include <QCoreApplication>
#include <QStringList>

#include "tools/publish/MinisignSigner.h"
#include "tools/publish/ServerTreeWriter.h"
#include "tools/publish/UpdateManifest.h"

namespace {

int usage()
{
    std::fprintf(stderr,
                 "usage: update-publisher [--sign SECRET_KEY_FILE [--serial N] [--expires "
                 "YYYY-MM-DDTHH:MM:SSZ]] MANIFEST.json OUTPUT-FOLDER\n");
    return 1;
}

int refused(const QString& message)
{
    std::fprintf(stderr, "update-publisher: %s\n", qPrintable(message));
    return 2;
}

}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QStringList arguments = app.arguments().mid(1);
    QString keyFile;
    QString serialText;
    QString expires;
    while (!arguments.isEmpty() && arguments.first().startsWith(QLatin1String("--"))) {
        const QString option = arguments.takeFirst();
        if (arguments.isEmpty())
            return usage();
        const QString value = arguments.takeFirst();
        if (option == QLatin1String("--sign"))
            keyFile = value;
        else if (option == QLatin1String("--serial"))
            serialText = value;
        else if (option == QLatin1String("--expires"))
            expires = value;
        else
            return usage();
    }
    if (arguments.size() != 2 || (keyFile.isEmpty() && !(serialText.isEmpty() && expires.isEmpty())))
        return usage();

    UpdateManifest manifest;
    if (!manifest.load(arguments[0]))
        return refused(manifest.errorString());

    MinisignSigner signer;
    ServerTreeWriter writer(arguments[1]);
    if (!keyFile.isEmpty()) {
        qint64 serial = manifest.serial;
        if (!serialText.isEmpty()) {
            bool number = false;
            serial = serialText.toLongLong(&number);
            if (!number || serial < 0)
                return refused(QStringLiteral("--serial \"%1\" is not a whole number of 0 or more").arg(serialText));
        }
        if (expires.isEmpty())
            expires = manifest.expires;
        if (serial < 0 || expires.isEmpty())
            return refused(QStringLiteral("signing needs a serial and an expiry time (--serial, "
                                          "--expires or the manifest's \"signature\")"));
        if (!isExpiryTime(expires))
            return refused(QStringLiteral("--expires \"%1\" is not YYYY-MM-DDTHH:MM:SSZ").arg(expires));
        if (!signer.load(keyFile))
            return refused(signer.errorString());
        writer.signWith(&signer, releaseTrustedComment(serial, expires));
    }
    if (!writer.write(manifest)) {
        std::fprintf(stderr, "update-publisher: %s\n", qPrintable(writer.errorString()));
        return 3;
    }
    std::printf("update-publisher: %d configuration(s), %d general module(s) written to %s%s\n",
                int(manifest.configurations.size()), int(manifest.modules.size()),
                qPrintable(arguments[1]), signer.isLoaded() ? ", signed" : "");
    return 0;
}
