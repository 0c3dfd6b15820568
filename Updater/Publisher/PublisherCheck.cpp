#include "Updater/Publisher/PublisherCheck.h"

#include "Ls/System/Util/Log.h"
#include "Ls/System/Win32/UniqueHandle.h"
#include "Updater/Publisher/PublisherName.h"

#include <windows.h>

#include <softpub.h>
#include <wincrypt.h>
#include <wintrust.h>

using LS::System::Win32::CUniqueHandle;

namespace
{
struct CryptMessageTraits
{
    using Type = HCRYPTMSG;
    static Type None() noexcept { return nullptr; }
    static void Free(Type message) noexcept { ::CryptMsgClose(message); }
};

struct CertificateTraits
{
    using Type = PCCERT_CONTEXT;
    static Type None() noexcept { return nullptr; }
    static void Free(Type certificate) noexcept { ::CertFreeCertificateContext(certificate); }
};
using CCertificate = CUniqueHandle<CertificateTraits>;

/// The system trusts the file's signature and the whole chain behind it, none of it revoked.
bool IsTrusted(const std::wstring& path)
{
    WINTRUST_FILE_INFO file = {};
    file.cbStruct = sizeof(file);
    file.pcwszFilePath = path.c_str();

    WINTRUST_DATA data = {};
    data.cbStruct = sizeof(data);
    data.dwUIChoice = WTD_UI_NONE;
    data.fdwRevocationChecks = WTD_REVOKE_WHOLECHAIN;
    data.dwUnionChoice = WTD_CHOICE_FILE;
    data.pFile = &file;
    data.dwStateAction = WTD_STATEACTION_IGNORE;
    data.dwProvFlags = WTD_REVOCATION_CHECK_CHAIN | WTD_SAFER_FLAG;

    GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
    const LONG result = ::WinVerifyTrust(static_cast<HWND>(INVALID_HANDLE_VALUE), &action, &data);
    if (result != ERROR_SUCCESS)
        LS_LOG_FAILURE("IsFileSignedBy() : WinVerifyTrust() returned 0x%08lx", result);
    return result == ERROR_SUCCESS;
}

/// The certificate that the embedded signature was made with; none when there is no such signature.
CCertificate SignerOf(const std::wstring& path)
{
    CUniqueHandle<CryptMessageTraits> message;
    if (!::CryptQueryObject(CERT_QUERY_OBJECT_FILE, path.c_str(), CERT_QUERY_CONTENT_FLAG_PKCS7_SIGNED_EMBED,
                            CERT_QUERY_FORMAT_FLAG_BINARY, 0, nullptr, nullptr, nullptr, nullptr,
                            message.Receive(), nullptr) ||
        !message)
        return {};

    CCertificate signer;
    if (!::CryptMsgGetAndVerifySigner(message.Get(), 0, nullptr, 0, signer.Receive(), nullptr))
        return {};
    return signer;
}

/// The subject's components with their attributes as object identifiers, as CertNameToStrA or W renders them.
template <class Character, class Render>
std::basic_string<Character> SubjectText(const CERT_INFO& certificate, Render render)
{
    CERT_NAME_BLOB subject = certificate.Subject;
    const DWORD length = render(X509_ASN_ENCODING, &subject, CERT_OID_NAME_STR, nullptr, 0);
    std::basic_string<Character> text(length, Character());
    const DWORD written = render(X509_ASN_ENCODING, &subject, CERT_OID_NAME_STR, text.data(), length);
    // Both counts include the final null. A null inside stays, so that it can't end a name early.
    text.resize(written > 0 && written <= length ? written - 1 : 0);
    return text;
}
} // namespace

bool IsFileLarkspurSigned(const std::wstring& path) noexcept
{
    static constexpr std::string_view publishers[] = {
        "2.5.4.10=Larkspur Inc.",
        "2.5.4.10=Larkspur, Inc.",
        "2.5.4.10=Larkspur Inc",
    };
    return IsFileSignedBy(path, publishers);
}

bool IsFileBlueStacksSigned(const std::wstring& path) noexcept
{
    // Spelled as in the publisher's certificate, which isn't the product's spelling.
    static constexpr std::string_view publishers[] = {"2.5.4.10=Bluestack Systems, Inc."};
    return IsFileSignedBy(path, publishers);
}

bool IsFileSignedBy(const std::wstring& path, std::span<const std::string_view> publishers) noexcept
{
    try
    {
        if (!IsTrusted(path))
            return false;
        const CCertificate signer = SignerOf(path);
        if (!signer || !signer.Get()->pCertInfo)
        {
            LS_LOG_FAILURE("IsFileSignedBy() : No signer found : LastError=0x%08lx", ::GetLastError());
            return false;
        }
        const CERT_INFO& certificate = *signer.Get()->pCertInfo;
        const std::wstring subject = SubjectText<wchar_t>(certificate, ::CertNameToStrW);
        if (!SubjectNamesPublisher(SubjectText<char>(certificate, ::CertNameToStrA), publishers))
        {
            LS_LOG_FAILURE(L"IsFileSignedBy() : Not an accepted publisher : %s", subject.c_str());
            return false;
        }
        // In the system's code page a letter, comma or quote that only looks like a plain one (a full-width
        // form) may have become one: the publisher must be named by what the certificate really says. The
        // other components may hold letters that the code page lacks, as before.
        const bool isAccepted = SubjectNamesPublisher(subject, publishers);
        if (!isAccepted)
            LS_LOG_FAILURE(L"IsFileSignedBy() : Only looks like an accepted publisher : %s", subject.c_str());
        return isAccepted;
    }
    catch (...) // out of memory
    {
        return false;
    }
}
