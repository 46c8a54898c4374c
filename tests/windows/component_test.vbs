' clsOutlookSynchronization from VBScript, as a Windows host creates and drives it.
' Arguments: a work folder holding host.db (a demo practice) and notadb.db (a
' file that is no database), the number of companies in host.db.
Dim fso : Set fso = CreateObject("Scripting.FileSystemObject")
Dim work : work = WScript.Arguments(0)
Dim companies : companies = CLng(WScript.Arguments(1))
Const kLoc = "kvoutlookdx.dll-clsOutlookSynchronization-"

Dim c : Set c = CreateObject("kvoutlookdx.clsOutlookSynchronization")

' The defaults are the component's unit test's (tests/core); here only what crosses COM.

' Every property that can be written reads back what was written.
c.TempFolder = "C:\temp\é" : CheckEqual c.TempFolder, "C:\temp\é", "TempFolder"
c.SyncDirectionType = 3 : CheckEqual c.SyncDirectionType, 3, "SyncDirectionType"
c.SyncInformationType = 4 : CheckEqual c.SyncInformationType, 4, "SyncInformationType"
c.showProgress = False : CheckEqual c.showProgress, False, "showProgress"
c.AppName = "Practice" : CheckEqual c.AppName, "Practice", "AppName"
c.OutlookCategory = "Clients" : CheckEqual c.OutlookCategory, "Clients", "OutlookCategory"
c.Profile = "Outlook" : CheckEqual c.Profile, "Outlook", "Profile"
c.Password = "secret" : CheckEqual c.Password, "secret", "Password"
c.DisplayLoginDialog = False : CheckEqual c.DisplayLoginDialog, False, "DisplayLoginDialog"
c.OpenNewSession = False : CheckEqual c.OpenNewSession, False, "OpenNewSession"
c.RefreshData = True : CheckEqual c.RefreshData, True, "RefreshData"
c.closeOutlookWhenFinished = True : CheckEqual c.closeOutlookWhenFinished, True, "closeOutlookWhenFinished"
c.companyList = 2 : CheckEqual c.companyList, 2, "companyList"
c.DataFileUniqueID = "DF-0042" : CheckEqual c.DataFileUniqueID, "DF-0042", "DataFileUniqueID"
c.SchemeID = "7" : CheckEqual c.SchemeID, 7, "SchemeID, given as text"

' The collection: Add, Count, Item (the default member), IndexOf, Remove, Clear, IsEmpty.
Dim coll : Set coll = c.companyCollection
coll.Add 17 : coll.Add "00000000ABCDEF" : coll.Add 4
CheckEqual c.companyCollection.Count, 3, "collection shared with the component"
CheckEqual coll(2), "00000000ABCDEF", "collection Item"
CheckEqual coll.IndexOf(4), 3, "collection IndexOf"
CheckEqual coll.IndexOf(99), -1, "collection IndexOf absent"
coll.Remove 1
CheckEqual coll.Item(1) & "," & coll.Count, "00000000ABCDEF,2", "collection Remove"
coll.Clear
CheckEqual coll.IsEmpty, True, "collection Clear"

' The scheme settings go back to their defaults; SchemeID stays.
c.resetOutlookSchemeToDefault
CheckEqual c.SyncInformationType & c.SyncDirectionType & c.companyList, "121", "reset: types"
CheckEqual c.Profile & c.Password, "", "reset: logon"
CheckEqual c.OutlookCategory, "Business", "reset: category"
CheckEqual c.SchemeID, 7, "reset keeps SchemeID"

' A file that is no database: the message of the host database, through the host's services.
Dim es : Set es = New ErrorService
Dim mb : Set mb = New MessageBox
Set c.errorClass = es
Set c.MsgboxClass = mb
c.MainDatabaseLocation = work & "\notadb.db"
CheckEqual c.FailedToInitializeFlag, True, "FailedToInitializeFlag after a file that is no database"
CheckEqual mb.Log, "The outlook synchronization was not able to access the companies database and needs to close.|3|101" & vbLf, "message shown"
Check mb.LastOwner Is c, "the message's owner is the component"
Check InStr(es.Entered, kLoc & "openMainDatabase" & vbLf) > 0, "location openMainDatabase entered: " & es.Entered
Check InStr(es.Log, kLoc & "openMainDatabase|") = 1, "the error names openMainDatabase: " & es.Log
CheckEqual es.Depth_, 0, "every procedure left"
c.MainDatabaseLocation = work & "\missing.db"
CheckEqual mb.Log, "The outlook synchronization was not able to access the companies database and needs to close.|3|101" & vbLf, "a missing file shows nothing"
Set c = Nothing

' A synchronisation of the demo practice into the stand-in's folder, under the host's progress
' dialog, every company chosen.
Set es = New ErrorService
Set mb = New MessageBox
Set c = DemoComponent(work, companies, es, mb)
CheckEqual c.FailedToInitializeFlag, False, "demo practice opens"
Check fso.FileExists(work & "\sync.db"), "synchronisation database made"
' The runs write to Outlook and read nothing Outlook's guard asks the user about (e-mail
' addresses, notes), for its report neither.
Dim standin : Set standin = CreateObject("Outlook.Application")
Dim guardedBefore : guardedBefore = standin.GuardedReads
CheckEqual c.Synchronize, False, "Synchronize answers False"
CheckEqual es.Log, "", "no error during the synchronisation"
' Again: every card now exists, and is updated.
CheckEqual c.Synchronize, False, "Synchronize again"
CheckEqual es.Log, "", "no error during the second synchronisation"
CheckEqual standin.GuardedReads - guardedBefore, 0, "guarded properties read by the runs"
' (The stand-in does count them: one e-mail address read here is one.)
Dim ns : Set ns = standin.GetNamespace("MAPI")
ns.Logon
Check ns.GetDefaultFolder(10).Items(1).Email1Address <> "?", "an e-mail address read"
CheckEqual standin.GuardedReads - guardedBefore, 1, "a read of Email1Address counts as guarded"
Set ns = Nothing
Set standin = Nothing
Dim lastDialog : Set lastDialog = mb.LastDialog

' No progress dialog to be had (kvdlgbox3 is not registered here, and no message box service):
' the run goes on without one, and the error is recorded.
Set c.MsgboxClass = Nothing
es.Entered = ""
CheckEqual c.Synchronize, False, "Synchronize without a dialog"
Check InStr(es.Entered, kLoc & "SynchronizeContacts" & vbLf) > 0, "the run went on: " & es.Entered
Check InStr(es.Log, "|429|No progress dialog, synchronising without one: ") > 0 And _
  InStr(es.Log, vbLf) = Len(es.Log), "one error recorded: " & es.Log
es.Log = ""
Set c.MsgboxClass = mb
Check lastDialog.Shown And lastDialog.Closed, "progress dialog shown and closed"
CheckEqual lastDialog.Message, "Synchronizing Outlook information, please wait ...", "progress message"
CheckEqual lastDialog.Maximum, companies, "progress maximum"
Check lastDialog.Value >= companies, "progress value advanced: " & lastDialog.Value
CheckEqual c.closeOutlookWhenFinished, True, "Outlook was started, not attached to"
CheckEqual c.StartOutlook, True, "StartOutlook"
CheckEqual c.StopOutlook, False, "StopOutlook answers False"
Set c = Nothing

Finish "component"
