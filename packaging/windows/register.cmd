@echo off
rem Registers the dossync component from this folder, for hosts that are not installed with the
rem MSI: the 64-bit DLL for 64-bit hosts, the 32-bit DLL for 32-bit hosts (on 64-bit Windows
rem both are registered, each in its own view of the registry). Run it as an administrator.
rem   register.cmd      registers
rem   register.cmd /u   unregisters (only keys that still name this component's classes go)
setlocal
set "here=%~dp0"
set "undo="
if /i "%~1"=="/u" set "undo=/u"
rem A 32-bit command prompt on 64-bit Windows reaches the 64-bit System32 as Sysnative.
set "sys64=%SystemRoot%\System32"
if exist "%SystemRoot%\Sysnative\regsvr32.exe" set "sys64=%SystemRoot%\Sysnative"
if exist "%SystemRoot%\SysWOW64\regsvr32.exe" (
  "%sys64%\regsvr32.exe" /s %undo% "%here%kvoutlookdx64.dll" || goto failed
  "%SystemRoot%\SysWOW64\regsvr32.exe" /s %undo% "%here%kvoutlookdx32.dll" || goto failed
) else (
  "%SystemRoot%\System32\regsvr32.exe" /s %undo% "%here%kvoutlookdx32.dll" || goto failed
)
echo dossync: done.
exit /b 0
:failed
echo dossync: regsvr32 failed. Run this as an administrator, from the folder holding the DLLs.
exit /b 1
