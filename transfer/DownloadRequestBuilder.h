#pragma once
// The extra request headers of one download, filled by a caller's callback
// and sent in the order they were added.
#include <deque>
#include <utility>

#include <QString>

namespace Download {

class CDownloadRequestBuilder {
public:
    using Header = std::pair<QString, QString>;
    using const_iterator = std::deque<Header>::const_iterator;

    explicit CDownloadRequestBuilder(const QString& url) : m_URL(url) {}

    QString GetUrl() const { return m_URL; }
    void AddHeader(const QString& name, const QString& value) { headers.emplace_back(name, value); }
    const_iterator HeaderBegin() const { return headers.begin(); }
    const_iterator HeaderEnd() const { return headers.end(); }

private:
    QString m_URL;
    std::deque<Header> headers;
};

}  // namespace Download
