#include "Ls/System/Net/HttpWebRequest.h"

#include "Ls/System/Net/HttpDate.h"
#include "Ls/System/Net/HttpTransfer.h"
#include "Ls/System/Util/Log.h"

#include <optional>
#include <utility>

namespace LS::System::Net
{
namespace
{
/// The application's end of a transfer: collects its settings, starts it, and stops it when the last
/// reference goes.
class CHttpTransferRequest final : public CHttpWebRequest
{
public:
    explicit CHttpTransferRequest(TransferSettings settings) :
        m_Settings(std::move(settings)), m_Transfer(MakeRef<CHttpTransfer>())
    {
    }
    ~CHttpTransferRequest() override { m_Transfer->Stop(); }

    void SetUserAgent(const std::string& userAgent) override { m_Settings.UserAgent = userAgent; }
    void SetContentType(const std::string& contentType) override { m_Settings.ContentType = contentType; }
    void SetDestination(const std::wstring& path) override { m_Settings.Destination = path; }
    void SetMostBytes(std::uint64_t bytes) override { m_Settings.MostBytes = bytes; }
    void SetRange(const HttpRange& range) override { m_Settings.Range = range; }
    void SetCookiesEnabled(bool enabled) override { m_Settings.CookiesEnabled = enabled; }
    void SetCookies(const std::string& cookies) override { m_Settings.Cookies.Store(cookies); }
    void SetCached(bool cached) override { m_Settings.Cached = cached; }
    void SetConditionalDate(const std::string& date) override { m_Settings.ConditionalDate = date; }
    void SetConditionalDate(const SYSTEMTIME& utc) override
    {
        m_Settings.ConditionalDate = HttpDateText(utc);
    }
    void SetSendIfModifiedSince(bool send) override { m_Settings.SendIfModifiedSince = send; }
    void SetSendIfRange(bool send) override { m_Settings.SendIfRange = send; }
    void SetLeastPace(const LeastPace& pace) override { m_Settings.Pace = pace; }
    void SetProgress(CRefPtr<CHttpProgress> progress) override { m_Settings.Progress = std::move(progress); }

    void Start() override { m_Transfer->Start(m_Settings); }

    float PercentDone() const override { return m_Transfer->PercentDone(); }
    void Pause() override { m_Transfer->Pause(); }
    void Resume() override { m_Transfer->Resume(); }

    bool DownloadIsOk() const override { return Result().Error == HttpError::None && Result().Stored; }
    std::uint32_t ErrorCode() const override { return static_cast<std::uint32_t>(Result().Error); }
    std::uint32_t StatusCode() const override { return Result().StatusCode; }
    std::uint64_t ContentLength() const override { return Result().ContentLength; }
    std::uint64_t ResponseLength() const override { return Result().ContentLength; }
    std::string ResponseBody() const override { return std::string(Result().Body.View()); }
    const HttpRange& Range() const override { return Result().Range; }
    std::string Cookies() const override { return Result().Cookies.Text(); }
    const std::string& LastModified() const override { return Result().LastModified; }
    const std::string& RequestHeaders() const override { return Result().RequestHeaders; }
    const std::string& ResponseHeaders() const override { return Result().ResponseHeaders; }

private:
    const TransferResult& Result() const { return m_Transfer->Result(); }

    TransferSettings m_Settings;
    CRefPtr<CHttpTransfer> m_Transfer;
};
} // namespace

CRefPtr<CHttpWebRequest> CHttpWebRequest::CreateHttp(const std::string& url, std::uint32_t connectTimeOutMs,
                                                     std::uint32_t sendTimeOutMs,
                                                     std::uint32_t receiveTimeOutMs,
                                                     std::uint32_t requestFlags)
{
    std::optional<Url> target = Url::Parse(url);
    if (!target)
    {
        LS_LOG_FAILURE("CHttpWebRequest::CreateHttp() : unusable URL : %s", url.c_str());
        return {};
    }
    TransferSettings settings;
    settings.UrlText = url;
    settings.Target = std::move(*target);
    settings.Limits = {connectTimeOutMs, sendTimeOutMs, receiveTimeOutMs};
    settings.RequestFlags = requestFlags;
    return MakeRef<CHttpTransferRequest>(std::move(settings));
}
} // namespace LS::System::Net
