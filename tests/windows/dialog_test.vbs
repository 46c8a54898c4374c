' The message-box library's progress dialog registered as kvdlgbox3.outlookDialog (the
' stand-in's, whose members have names of their own): Synchronize makes it by its ProgID, sets
' its ten settings in the order of its interface, runs in its start event, steps its value and
' closes it; the host's message box service is not asked for one.
' Arguments: the work folder of component_test.vbs, the number of companies in host.db.
Dim work : work = WScript.Arguments(0)
Dim companies : companies = CLng(WScript.Arguments(1))
Dim es : Set es = New ErrorService
Dim mb : Set mb = New MessageBox
Dim c : Set c = DemoComponent(work, companies, es, mb)
CheckEqual c.Synchronize, False, "Synchronize"
CheckEqual es.Log, "", "no error"
Check IsEmpty(mb.LastDialog), "the message box service made no dialog"
CheckEqual CreateObject("Outlook.Application").DialogLog, _
  "Caption=Synchronizing Outlook information, please wait ...|Kind=1|Parent:=Nothing|Low=0|" & _
  "High=" & companies & "|Bar=True|Position=0|Second=0|Cancellable=True|Code=101|Show|" & _
  "Close at " & companies & "|", "the dialog's settings in order, and its run"
Set c = Nothing
Finish "registered dialog"
