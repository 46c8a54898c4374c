' The Outlook stand-in (outlook_standin.dll, registered as "Outlook.Application") from VBScript:
' a contact written and found again by FileAs and by entry id, a mail draft with a recipient
' and an attachment saved into the store, and errors that reach the script with their number.
' The store is the folder DOSSYNC_STANDIN_STORE names; it may already hold contacts.

Dim fso : Set fso = CreateObject("Scripting.FileSystemObject")
Dim store : store = CreateObject("WScript.Shell").Environment("Process")("DOSSYNC_STANDIN_STORE")

' With the argument "without-store", run with DOSSYNC_STANDIN_STORE unset: the stand-in cannot
' be made (Wine's VBScript cannot change its own environment, so this is a run of its own).
If WScript.Arguments.Count > 0 Then
  If WScript.Arguments(0) = "without-store" Then
    Check store = "", "DOSSYNC_STANDIN_STORE is not set"
    On Error Resume Next
    Dim none : Set none = CreateObject("Outlook.Application")
    Check Err.Number <> 0, "CreateObject without a store fails"
    On Error GoTo 0
    Finish "standin without store"
    WScript.Quit
  End If
End If
Check store <> "", "DOSSYNC_STANDIN_STORE is set"

Dim o : Set o = CreateObject("Outlook.Application")
CheckEqual o.Name, "Outlook", "Application.Name"
Dim ns : Set ns = o.GetNamespace("MAPI")
ns.Logon
ns.Logon "", "", False, False
Dim folder : Set folder = ns.GetDefaultFolder(10)
Dim storeId : storeId = folder.StoreID
CheckEqual Len(storeId), 32, "StoreID"
Dim before : before = folder.Items.Count

' ---- A contact: text, gender and dates; Birthday set, Anniversary left at Outlook's none date.
Dim zoe : zoe = "Zo" & Chr(235)  ' ChrW is missing from Wine's VBScript
' A last name of this run's own, so that a store used before finds this contact alone.
Randomize
Dim last : last = "Standin" & CStr(Int(Rnd * 1000000000))
Dim c : Set c = o.CreateItem(2)
CheckEqual c.Class, 40, "contact Class"
CheckEqual c.EntryID, "", "EntryID before Save"
c.FirstName = zoe
c.LastName = last
c.FullName = zoe & " " & last
c.Email1Address = "zoe@example.com"
c.Gender = 1
c.Birthday = DateSerial(1970, 5, 17)
c.Save
Dim id : id = c.EntryID
Check Len(id) > 0, "EntryID after Save"
CheckEqual c.FileAs, last & ", " & zoe, "FileAs filled on Save"
CheckEqual folder.Items.Count, before + 1, "Items.Count after Save"

Dim found : Set found = folder.Items.Find("[FileAs] = """ & LCase(last) & ", " & zoe & """")
If found Is Nothing Then
  Check False, "Find by FileAs"
Else
  CheckEqual found.EntryID, id, "found EntryID"
  Dim guarded : guarded = o.GuardedReads
  CheckEqual found.Email1Address, "zoe@example.com", "found Email1Address"
  CheckEqual o.GuardedReads, guarded + 1, "a read of Email1Address counts as guarded"
  CheckEqual found.Gender, 1, "found Gender"
  CheckEqual TypeName(found.Birthday), "Date", "Birthday is a Date"
  CheckEqual found.Birthday, DateSerial(1970, 5, 17), "found Birthday"
  CheckEqual Year(found.Anniversary), 4501, "Anniversary none"
End If
Check folder.Items.Find("[FileAs] = ""Nobody, Here""") Is Nothing, "Find of no one is Nothing"

Dim byId : Set byId = ns.GetItemFromID(id, storeId)
If byId Is Nothing Then
  Check False, "GetItemFromID"
Else
  CheckEqual byId.FullName, zoe & " " & last, "GetItemFromID FullName"
  byId.JobTitle = "Tester"
  byId.Save
End If
CheckEqual ns.GetItemFromID(id).JobTitle, "Tester", "GetItemFromID without a store, after an edit"
Check ns.GetItemFromID(id, String(32, "0")) Is Nothing, "GetItemFromID of another store"
Check ns.GetItemFromID("no-such-id") Is Nothing, "GetItemFromID of no item"
Dim first : Set first = folder.Items(1)
Dim firstClass : firstClass = first.Class
Check firstClass = 40 Or firstClass = 69, "Items(1) as the default member"

' ---- Errors reach the script with their number and description.
On Error Resume Next
Dim x : Set x = folder.Items.Item(0)
Check Err.Number <> 0 And Err.Description <> "", "Items.Item(0) raises an error"
Err.Clear
c.Birthday = "not a date"
CheckEqual Err.Number, 13, "a Birthday that is no date: type mismatch"
Err.Clear
Set x = o.CreateItem(7)
Check Err.Number <> 0, "CreateItem(7) raises an error"
Err.Clear
x = c.NoSuchMember
CheckEqual Err.Number, 438, "an unknown member"
Err.Clear
Set x = o.CreateItem(1)
If Err.Number = 0 Then
  CheckEqual x.Class, 26, "appointment Class"
  x.Start = DateSerial(2026, 3, 1) + TimeSerial(9, 30, 0)
  CheckEqual x.Start, DateSerial(2026, 3, 1) + TimeSerial(9, 30, 0), "appointment Start"
Else
  Check InStr(Err.Description, "calendar") > 0, "CreateItem(1) says the calendar is missing"
End If
Err.Clear
On Error GoTo 0

' ---- A mail draft with a recipient and an attachment, saved under the store.
Dim papers : papers = fso.BuildPath(fso.GetSpecialFolder(2), "standin papers.txt")
fso.CreateTextFile(papers, True).WriteLine "Please sign."
Dim m : Set m = o.CreateItem(0)
CheckEqual m.Class, 43, "mail Class"
m.Subject = "Stand-in check"
m.Body = "Hello"
Dim r : Set r = m.Recipients.Add("ann@example.com")
r.Type = 2
CheckEqual r.Type, 2, "Recipient.Type"
CheckEqual r.Resolve, True, "Recipient.Resolve"
m.Recipients.Add "bob@example.com"
CheckEqual m.Recipients.Count, 2, "Recipients.Count"
CheckEqual m.Recipients(2).Name, "bob@example.com", "Recipients(2).Name"
Dim a : Set a = m.Attachments.Add(papers, 1, 1, "Papers.txt")
CheckEqual a.DisplayName, "Papers.txt", "Attachment.DisplayName"
CheckEqual a.PathName, papers, "Attachment.PathName"
m.Attachments.Add papers
CheckEqual m.Attachments.Count, 2, "Attachments.Count"
CheckEqual m.Attachments.Item(2).DisplayName, "standin papers.txt", "default DisplayName"
m.Save
Dim draft : draft = ""
Dim profile
For Each profile In fso.GetFolder(store).SubFolders
  If fso.FileExists(profile.Path & "\drafts\" & m.EntryID & ".eml") Then
    draft = profile.Path & "\drafts\" & m.EntryID & ".eml"
  End If
Next
If draft = "" Then
  Check False, "draft " & m.EntryID & ".eml under " & store
Else
  Dim text : text = fso.OpenTextFile(draft).ReadAll
  Check InStr(text, "Subject: Stand-in check") > 0, "draft Subject"
  Check InStr(text, "bob@example.com") > 0, "draft recipient"
  Check InStr(text, "Papers.txt") > 0, "draft attachment"
End If

' Sending needs a mail account, which the store has not got: the error says so.
Dim unsent : Set unsent = o.CreateItem(0)
unsent.Recipients.Add "ann@example.com"
On Error Resume Next
unsent.Send
CheckEqual Err.Number, &H4002, "Send without an account"
Check InStr(Err.Description, "account") > 0, "Send names the missing account"
On Error GoTo 0
fso.DeleteFile papers

Finish "standin"
