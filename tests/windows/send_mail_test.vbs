' clsOutlookSendMail from VBScript: a draft composed through Outlook and shown.
' Arguments: a work folder holding papers.txt.
Dim work : work = WScript.Arguments(0)

Dim m : Set m = CreateObject("kvoutlookdx.clsOutlookSendMail")
CheckEqual m.SendMail, False, "SendMail before CreateNewMail"
CheckEqual m.CreateNewMail, False, "CreateNewMail before StartOutlook"
CheckEqual m.StartOutlook("", "secret"), False, "a password without a profile"
CheckEqual m.StartOutlook, True, "StartOutlook with its defaults"
CheckEqual m.CreateNewMail, True, "CreateNewMail"
m.Subject = "Year-end papers"
m.Body = "Please sign and return."
m.Recipient_TO = "ann@example.com; bob@example.com"
m.Recipient_CC = "carl@example.com"
m.Recipient_BCC = "dora@example.com"
CheckEqual m.Attachment(work & "\papers.txt", "Year-end papers.txt"), True, "Attachment"
CheckEqual m.DisplayMail, True, "DisplayMail"
m.CloseOutlook
CheckEqual m.DisplayMail, False, "DisplayMail after CloseOutlook"
Set m = Nothing

Finish "send mail"
