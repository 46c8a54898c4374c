-- The host practice database: the tables and columns dossync reads and writes.
-- Conventions: auto-number keys INTEGER PRIMARY KEY AUTOINCREMENT; Yes/No columns BOOLEAN
-- (stored 1/0); dates DATETIME (ISO text); memo columns TEXT; other text VARCHAR(n).
-- Name columns sort and index without regard to case, as the host's lists do.

CREATE TABLE Categories (
  CategoryID INTEGER PRIMARY KEY AUTOINCREMENT,
  CategoryName VARCHAR(100) COLLATE NOCASE,
  CategoryNum INTEGER
);
CREATE INDEX ix_Categories_CategoryName ON Categories(CategoryName);
CREATE INDEX ix_Categories_CategoryNum ON Categories(CategoryNum);

CREATE TABLE HostCategory (
  CategoryNum INTEGER,
  CategoryName VARCHAR(100)
);

CREATE TABLE Companies (
  CompanyID INTEGER PRIMARY KEY AUTOINCREMENT,
  CompanyName VARCHAR(100) COLLATE NOCASE,
  CategoryNum INTEGER,
  CompanyNum INTEGER,
  Address VARCHAR(255),
  City VARCHAR(50),
  Province VARCHAR(50),
  PostalCode VARCHAR(20),
  Country VARCHAR(50),
  OfficeNumber VARCHAR(30),
  FaxNumber VARCHAR(30),
  Email VARCHAR(100),
  WebSite VARCHAR(100),
  DefaultContactName VARCHAR(100),
  DefaultContactPhoneNumber VARCHAR(30),
  DefaultContactFaxNumber VARCHAR(30),
  DefaultContactEmail VARCHAR(100),
  ContactNotes TEXT
);
CREATE INDEX ix_Companies_CompanyName ON Companies(CompanyName);
CREATE INDEX ix_Companies_CategoryNum ON Companies(CategoryNum);
CREATE INDEX ix_Companies_CompanyNum ON Companies(CompanyNum);

CREATE TABLE Contacts (
  ContactID INTEGER PRIMARY KEY AUTOINCREMENT,
  CompanyNum INTEGER,
  CategoryNum INTEGER,
  DefaultContact BOOLEAN NOT NULL DEFAULT 0,
  InheritCompanyInfo BOOLEAN NOT NULL DEFAULT 0,
  NamePrefix VARCHAR(20),
  FirstName VARCHAR(50),
  MiddleName VARCHAR(50),
  LastName VARCHAR(50),
  NameSuffix VARCHAR(20),
  DisplayName VARCHAR(100) COLLATE NOCASE,
  SocialInsuranceNumber VARCHAR(20),
  EmployeeType VARCHAR(50),
  PercentageOwnership VARCHAR(20),
  SpouseName VARCHAR(100),
  Children VARCHAR(255),
  Gender VARCHAR(10),
  Birthday DATETIME,
  Anniversary DATETIME,
  BusinessName VARCHAR(100),
  BusinessJobTitle VARCHAR(100),
  BusinessDepartment VARCHAR(100),
  BusinessOffice VARCHAR(100),
  BusinessPhone_Main VARCHAR(30),
  BusinessPhone_Cell VARCHAR(30),
  BusinessPhone_Pager VARCHAR(30),
  BusinessPhone_Fax VARCHAR(30),
  BusinessAddress VARCHAR(255),
  BusinessCity VARCHAR(50),
  BusinessProvince VARCHAR(50),
  BusinessPostalCode VARCHAR(20),
  BusinessCountry VARCHAR(50),
  BusinessWebSite VARCHAR(100),
  BusinessEmail VARCHAR(100),
  PersonalEmail VARCHAR(100),
  HomePhone_Main VARCHAR(30),
  HomePhone_Cell VARCHAR(30),
  HomePhone_Pager VARCHAR(30),
  HomePhone_Fax VARCHAR(30),
  HomeAddress VARCHAR(255),
  HomeCity VARCHAR(50),
  HomeProvince VARCHAR(50),
  HomePostalCode VARCHAR(20),
  HomeCountry VARCHAR(50),
  PersonalWebSite VARCHAR(100),
  ContactCustom1 VARCHAR(100),
  ContactCustom2 VARCHAR(100),
  ContactCustom3 VARCHAR(100),
  ContactCustom4 VARCHAR(100),
  ContactCustom5 VARCHAR(100),
  Custom1 VARCHAR(100),
  Custom2 VARCHAR(100),
  Custom3 VARCHAR(100),
  Custom4 VARCHAR(100),
  Custom5 VARCHAR(100),
  Notes TEXT,
  BusinessNotes TEXT
);
CREATE INDEX ix_Contacts_CompanyNum ON Contacts(CompanyNum);
CREATE INDEX ix_Contacts_CategoryNum ON Contacts(CategoryNum);
CREATE INDEX ix_Contacts_DisplayName ON Contacts(DisplayName);

CREATE TABLE ClientData (
  ClientDataID INTEGER PRIMARY KEY AUTOINCREMENT,
  CompanyIDNum INTEGER,
  ShowThisClient BOOLEAN NOT NULL DEFAULT 1
);
CREATE INDEX ix_ClientData_CompanyIDNum ON ClientData(CompanyIDNum);

-- One row per client in each detail table, keyed by the client's ClientDataID. The columns
-- after the key belong to the host application.
CREATE TABLE AccountingServices (
  AccountingServicesID INTEGER PRIMARY KEY,
  YearEnd VARCHAR(20),
  Bookkeeping BOOLEAN NOT NULL DEFAULT 0,
  FinancialStatements BOOLEAN NOT NULL DEFAULT 0
);
CREATE TABLE ClientOptions (
  ClientOptionsID INTEGER PRIMARY KEY,
  BillingRate VARCHAR(20),
  SendReminders BOOLEAN NOT NULL DEFAULT 1
);
CREATE TABLE ClientNotes (
  ClientNotesID INTEGER PRIMARY KEY,
  Notes TEXT
);
CREATE TABLE CorpTaxInfo (
  CorpTaxInfoID INTEGER PRIMARY KEY,
  BusinessNumber VARCHAR(20),
  TaxYearEnd VARCHAR(20)
);
CREATE TABLE LawInfo (
  LawInfoID INTEGER PRIMARY KEY,
  IncorporationDate DATETIME,
  Jurisdiction VARCHAR(50)
);
CREATE TABLE OtherInfo (
  OtherInfoID INTEGER PRIMARY KEY,
  Remarks TEXT
);
CREATE TABLE SoftwareInfo (
  SoftwareInfoID INTEGER PRIMARY KEY,
  Package VARCHAR(50)
);
CREATE TABLE WSIB_EHTInfo (
  WSIB_EHTInfoID INTEGER PRIMARY KEY,
  WSIBNumber VARCHAR(20),
  EHTNumber VARCHAR(20)
);

CREATE TABLE CustomAddressFields (
  ContactLabel1 VARCHAR(50),
  ContactLabel2 VARCHAR(50),
  ContactLabel3 VARCHAR(50),
  ContactLabel4 VARCHAR(50),
  ContactLabel5 VARCHAR(50)
);

CREATE TABLE CustomFields (
  RemittanceCustomInfo1 VARCHAR(50),
  RemittanceCustomInfo2 VARCHAR(50),
  RemittanceCustomInfo3 VARCHAR(50),
  RemittanceCustomInfo4 VARCHAR(50),
  RemittanceCustomInfo5 VARCHAR(50),
  RemittanceCustomType1 SMALLINT,
  RemittanceCustomType2 SMALLINT,
  RemittanceCustomType3 SMALLINT,
  RemittanceCustomType4 SMALLINT,
  RemittanceCustomType5 SMALLINT
);

CREATE TABLE Schedule (
  ScheduleID INTEGER PRIMARY KEY AUTOINCREMENT,
  ClientNum INTEGER,
  DueDate DATETIME,
  Task VARCHAR(100),
  Custom1 VARCHAR(100),
  Custom2 VARCHAR(100),
  Custom3 VARCHAR(100),
  Custom4 VARCHAR(100),
  Custom5 VARCHAR(100)
);
CREATE INDEX ix_Schedule_ClientNum ON Schedule(ClientNum);

-- The contact recordset as the host names it in its own code.
CREATE VIEW rstContacts AS SELECT * FROM Contacts;
