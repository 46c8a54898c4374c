' The host's services as a Windows host written in VBScript would give them to the component:
' an error service that keeps the procedure stack and logs every error with the procedure it
' happened in, a message box that logs what it was asked to show, and a progress dialog that
' runs the work it is handed as soon as it is shown. run.sh puts this file in front of each test
' script (Wine's VBScript has no ExecuteGlobal to include it). Wine's VBScript also wants one
' name per Private or Public line in a class.
Option Explicit

Dim failures : failures = 0

Sub Check(condition, what)
  If Not condition Then
    failures = failures + 1
    WScript.Echo "FAIL " & what
  End If
End Sub

Sub CheckEqual(actual, expected, what)
  If CStr(actual) <> CStr(expected) Then
    failures = failures + 1
    WScript.Echo "FAIL " & what & ": got [" & actual & "], expected [" & expected & "]"
  End If
End Sub

'' A component over the demo practice in the work folder (host.db, sync.db), given the host's
' services, with every company chosen.
Function DemoComponent(work, companies, es, mb)
  Dim c : Set c = CreateObject("kvoutlookdx.clsOutlookSynchronization")
  Set c.errorClass = es
  Set c.MsgboxClass = mb
  c.DataFileUniqueID = "DEMO"
  c.MainDatabaseLocation = work & "\host.db"
  c.SyncDatabaseLocation = work & "\sync.db"
  Dim i
  For i = 1 To companies
    c.companyCollection.Add i
  Next
  Set DemoComponent = c
End Function

' Every script ends with this line, which the runner looks for (cscript itself ends 0 even
' when a script stops on an error).
Sub Finish(name)
  If failures = 0 Then
    WScript.Echo "OK " & name
  Else
    WScript.Echo "FAILED " & name & " (" & failures & ")"
  End If
End Sub

Class ErrorService
  Private stack
  Private depth
  Public Log
  Public Action
  Public Entered
  Private Sub Class_Initialize()
    ReDim stack(1000)
    depth = 0
    Log = ""
    Action = 2
    Entered = ""
  End Sub
  Public Sub EnterProcedure(location)
    stack(depth) = location
    depth = depth + 1
    Entered = Entered & location & vbLf
  End Sub
  Public Sub LeaveProcedure()
    If depth > 0 Then depth = depth - 1
  End Sub
  Public Sub RecordError(number, description, source)
    Dim where : where = ""
    If depth > 0 Then where = stack(depth - 1)
    Log = Log & where & "|" & number & "|" & description & vbLf
  End Sub
  Public Sub ReportError()
  End Sub
  Public Function ChooseAction()
    ChooseAction = Action
  End Function
  Public Property Get Depth_()
    Depth_ = depth
  End Property
End Class

Class ProgressDialog
  Public Message
  Public Style
  Public Minimum
  Public Maximum
  Public ShowBar
  Public Value
  Public SecondaryValue
  Public AllowCancel
  Public Number
  Public Status
  Public Shown
  Public Closed
  Public Owner
  Public StartHandler
  Private Sub Class_Initialize()
    Shown = False
    Closed = False
    Value = 0
  End Sub
  Public Sub Show()
    Shown = True
    StartHandler.StartProgress
  End Sub
  Public Sub Close()
    Closed = True
  End Sub
End Class

Class MessageBox
  Public Log
  Public LastOwner
  Public LastDialog
  Private Sub Class_Initialize()
    Log = ""
  End Sub
  Public Function ShowMessage(text, style, owner, number)
    Log = Log & text & "|" & style & "|" & number & vbLf
    Set LastOwner = owner
    ShowMessage = 1
  End Function
  Public Function CreateProgressDialog()
    Set LastDialog = New ProgressDialog
    Set CreateProgressDialog = LastDialog
  End Function
End Class
