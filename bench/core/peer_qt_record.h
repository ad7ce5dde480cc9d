// An object with the properties of field_names, for Qt's meta object compiler.
#pragma once

#include <QByteArray>
#include <QObject>

namespace bench {

class QtRecord : public QObject {
    Q_OBJECT
    Q_PROPERTY(int Uid MEMBER m_Uid)
    Q_PROPERTY(int Gid MEMBER m_Gid)
    Q_PROPERTY(int Age MEMBER m_Age)
    Q_PROPERTY(int Quota MEMBER m_Quota)
    Q_PROPERTY(int Logins MEMBER m_Logins)
    Q_PROPERTY(int Shell MEMBER m_Shell)
    Q_PROPERTY(int Locked MEMBER m_Locked)
    Q_PROPERTY(int Level MEMBER m_Level)
    Q_PROPERTY(double Height MEMBER m_Height)
    Q_PROPERTY(double Weight MEMBER m_Weight)
    Q_PROPERTY(double Score MEMBER m_Score)
    Q_PROPERTY(double Rate MEMBER m_Rate)
    Q_PROPERTY(double Load MEMBER m_Load)
    Q_PROPERTY(double Share MEMBER m_Share)
    Q_PROPERTY(QByteArray Name MEMBER m_Name)
    Q_PROPERTY(QByteArray Comment MEMBER m_Comment)
    Q_PROPERTY(QByteArray Home MEMBER m_Home)
    Q_PROPERTY(QByteArray Group MEMBER m_Group)
    Q_PROPERTY(QByteArray Host MEMBER m_Host)
    Q_PROPERTY(QByteArray Mail MEMBER m_Mail)

private:
    int m_Uid = 0, m_Gid = 1, m_Age = 2, m_Quota = 3, m_Logins = 4, m_Shell = 5, m_Locked = 6, m_Level = 7;
    double m_Height = 8.5, m_Weight = 9.5, m_Score = 10.5, m_Rate = 11.5, m_Load = 12.5, m_Share = 13.5;
    QByteArray m_Name = "Name", m_Comment = "Comment", m_Home = "Home", m_Group = "Group", m_Host = "Host",
               m_Mail = "Mail";
};

}  // namespace bench
