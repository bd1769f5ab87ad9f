; The installer, made by tools/package.py with: VERSION, PROGRAM (the executable), README, CHANGELOG,
; NOTICES, OUTPUT, SIZE_KIB, and SIGN (a command that signs the file behind it) when there is a certificate.
;
; For the current user and without questions: into a folder named after the version. A browser keeps
; the file of a running host locked, so an update never overwrites: it installs beside the old version
; and lets the program register itself, which points the browsers at the new file. What is left of
; older versions goes with the next update or with the uninstaller.
;
; Exit codes with /S: 0 done, 2 not done (the program could not be written or did not register, or
; the system is older than Windows 10). The uninstaller's caller gets 0 at once, whatever comes of
; it: it goes on in a copy of itself. With _?=FOLDER behind /S it makes none, and returns 0 or 2.

Unicode true
Target amd64-unicode
SetCompressor /SOLID lzma
SetDateSave off
!include LogicLib.nsh
!include WinVer.nsh

!define NAME "morva-chrome-host"
!define FILE "morva-chrome-host.exe"
!define ROOT "$LOCALAPPDATA\Programs\morva-chrome-host"
!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\morva-chrome-host"

Name "morva browser connection ${VERSION}"
BrandingText "Quenlark"
OutFile "${OUTPUT}"
RequestExecutionLevel user
ManifestSupportedOS Win10
ManifestDPIAware true
ManifestLongPathAware true
XPStyle on
ShowInstDetails show
ShowUninstDetails show
Page instfiles
UninstPage uninstConfirm
UninstPage instfiles
!ifdef SIGN
  !finalize '${SIGN} "%1"' = 0
  !uninstfinalize '${SIGN} "%1"' = 0
!endif

VIProductVersion "${VERSION}.0"
VIFileVersion "${VERSION}.0"
VIAddVersionKey "CompanyName" "Quenlark"
VIAddVersionKey "FileDescription" "Installs the browser connection of the morva assistant"
VIAddVersionKey "FileVersion" "${VERSION}"
VIAddVersionKey "LegalCopyright" ""
VIAddVersionKey "ProductName" "morva"
VIAddVersionKey "ProductVersion" "${VERSION}"

Var previous
Var isNew
Var left ; folders of versions that are in use

; Removes every version but KEPT from the root, as far as no running program holds it.
!macro RemoveVersionsBut KEPT
  StrCpy $left 0
  FindFirst $R0 $R1 "${ROOT}\*"
  ${DoWhile} $R1 != ""
    ${If} $R1 != "."
    ${AndIf} $R1 != ".."
    ${AndIf} $R1 != "${KEPT}"
    ${AndIf} ${FileExists} "${ROOT}\$R1\*.*"
      RMDir /r "${ROOT}\$R1"
      ${If} ${FileExists} "${ROOT}\$R1\*.*"
        IntOp $left $left + 1
      ${EndIf}
    ${EndIf}
    FindNext $R0 $R1
  ${Loop}
  FindClose $R0
!macroend

Function .onInit
  ; The program would not even start there, and only a box of the loader would say so.
  ${IfNot} ${AtLeastWin10}
    MessageBox MB_OK|MB_ICONSTOP "This program needs Windows 10 or 11." /SD IDOK
    SetErrorLevel 2
    Quit
  ${EndIf}
  ; Always here, whatever /D says: the uninstaller removes whole folders and must know that they
  ; are ours.
  StrCpy $INSTDIR "${ROOT}\${VERSION}"
FunctionEnd

Section
  ReadRegStr $previous HKCU "${UNINSTALL_KEY}" "InstallLocation"
  StrCpy $isNew 1
  ${If} ${FileExists} "$INSTDIR\*.*"
    StrCpy $isNew 0
  ${EndIf}

  SetOutPath "$INSTDIR"
  SetOverwrite try
  ClearErrors
  File "/oname=${FILE}" "${PROGRAM}"
  File "/oname=README.txt" "${README}"
  File "/oname=CHANGELOG.md" "${CHANGELOG}"
  File "/oname=NOTICES.txt" "${NOTICES}"
  ${If} ${Errors}
    Abort "Some files are in use. \
      Close the browsers, and the programs that use the browser tools, and try again."
  ${EndIf}
  SetOutPath "$LOCALAPPDATA" ; nobody can remove the folder that a process stands in

  nsExec::ExecToLog '"$INSTDIR\${FILE}" --register'
  Pop $0
  ${If} $0 != "0"
    ${If} $isNew == 1
      RMDir /r "$INSTDIR"
      RMDir "${ROOT}"
      RMDir "$LOCALAPPDATA\Programs" ; only when it is empty
    ${EndIf}
    ${If} ${FileExists} "$previous\${FILE}"
      nsExec::ExecToLog '"$previous\${FILE}" --register'
      Pop $1
    ${EndIf}
    Abort "The program could not register itself with the browsers ($0)."
  ${EndIf}

  WriteUninstaller "${ROOT}\uninstall.exe"
  WriteRegStr HKCU "${UNINSTALL_KEY}" "DisplayName" "morva browser connection"
  WriteRegStr HKCU "${UNINSTALL_KEY}" "DisplayVersion" "${VERSION}"
  WriteRegStr HKCU "${UNINSTALL_KEY}" "Publisher" "Quenlark"
  WriteRegStr HKCU "${UNINSTALL_KEY}" "InstallLocation" "$INSTDIR"
  WriteRegStr HKCU "${UNINSTALL_KEY}" "DisplayIcon" "${ROOT}\uninstall.exe"
  WriteRegStr HKCU "${UNINSTALL_KEY}" "UninstallString" '"${ROOT}\uninstall.exe"'
  WriteRegStr HKCU "${UNINSTALL_KEY}" "QuietUninstallString" '"${ROOT}\uninstall.exe" /S'
  WriteRegDWORD HKCU "${UNINSTALL_KEY}" "EstimatedSize" ${SIZE_KIB}
  WriteRegDWORD HKCU "${UNINSTALL_KEY}" "NoModify" 1
  WriteRegDWORD HKCU "${UNINSTALL_KEY}" "NoRepair" 1

  ; What still names the old version, a browser that is not found here for example, would be left
  ; with a name of nothing. It takes back nothing that names the new one.
  ${If} $previous != $INSTDIR
  ${AndIf} ${FileExists} "$previous\${FILE}"
    nsExec::ExecToLog '"$previous\${FILE}" --unregister'
    Pop $0
  ${EndIf}
  !insertmacro RemoveVersionsBut "${VERSION}"
SectionEnd

Section Uninstall
  SetOutPath "$LOCALAPPDATA"
  ReadRegStr $previous HKCU "${UNINSTALL_KEY}" "InstallLocation"
  ${If} ${FileExists} "$previous\${FILE}"
    nsExec::ExecToLog '"$previous\${FILE}" --unregister'
    Pop $0
    ${If} $0 != "0"
      DetailPrint "The program could not undo its registration ($0)."
    ${EndIf}
  ${EndIf}

  ; A program that a browser or an MCP client still uses keeps its file. The entry in the list of
  ; programs then stays, so that the user can come back.
  again:
  !insertmacro RemoveVersionsBut ""
  ${If} $left != 0
    MessageBox MB_RETRYCANCEL|MB_ICONEXCLAMATION "The program is still in use. \
      Close the browsers, and the programs that use the browser tools, and try again." \
      /SD IDCANCEL IDRETRY again
    Abort "The program is still in use."
  ${EndIf}
  Delete "${ROOT}\uninstall.exe"
  RMDir "${ROOT}"
  RMDir "$LOCALAPPDATA\Programs" ; only when nobody else has anything there
  DeleteRegKey HKCU "${UNINSTALL_KEY}"
SectionEnd
