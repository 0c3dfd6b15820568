@echo off
rem Runs every test and writes report.txt beside this file; what it changes of the machine, it puts back.
rem "Run as administrator" runs all of them; without that some are left out, and the report says which.
rem   run-tests.cmd [/restore] [PROGRAM...]
rem PROGRAM (NetTests, RunTests ...) chooses test programs. Should the machine be switched off in the middle,
rem the next start, or /restore, puts back what was left.
"%~dp0Kit\KitRunner.exe" %*
set result=%errorlevel%
echo.
pause
exit /b %result%
