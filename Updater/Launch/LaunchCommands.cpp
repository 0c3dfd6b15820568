#include "Updater/Launch/LaunchCommands.h"

std::wstring PatchFolder(const std::wstring& patchPath)
{
    return patchPath.substr(0, patchPath.rfind(L'\\')) + L"\\";
}

std::wstring ParkCopyPath(const std::wstring& dataDir, const std::wstring& uuid)
{
    return dataDir + L"\\Park-{" + uuid + L"}.exe";
}

std::wstring PatchParameters(const std::wstring& parkCopy, const std::wstring& installerArgs)
{
    return L"/park=\"" + parkCopy + L"\"" + (installerArgs.empty() ? L"" : L" " + installerArgs);
}

std::wstring ClientPath(const std::wstring& programFiles)
{
    return programFiles + L"\\Larkspur Games\\App\\PlayDeck-ls.exe";
}

std::wstring ParkCommandLine(const std::wstring& clientPath, const std::wstring& locale,
                             const std::wstring& appArgs, const std::wstring& dp)
{
    return L"/Execute \"" + clientPath + L"\" /LaunchParams \"/noupdate! /userlocale " + locale +
           (appArgs.empty() ? L" /dp " + dp : L" " + appArgs) +
           L"\" /EventTerminate \"Global\\LSPARKTERM\" /EventExecute \"Global\\LSPARKEXEC\"";
}

std::wstring ParkTerminateCommandLine()
{
    return L"/EventTerminate \"Global\\LSPARKTERM\" /SignalTerminate";
}

std::wstring Quoted(const std::wstring& path)
{
    return L"\"" + path + L"\"";
}

std::wstring MsiexecParameters(const std::wstring& packagePath)
{
    return L"/i " + Quoted(packagePath) + L" /qn";
}
